// A point with tiny accessors, inlined wherever it is used.
package korvane.workload;

final class Point {
    private final double x;
    private final double y;

    Point(double x, double y) {
        this.x = x;
        this.y = y;
    }

    double x() {
        return x;
    }

    double y() {
        return y;
    }

    double cross(Point other) {
        return x() * other.y() - y() * other.x();
    }
}

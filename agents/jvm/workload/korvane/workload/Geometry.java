// Areas of polygons: a hot loop whose calls nest a few levels deep.
package korvane.workload;

final class Geometry {
    private Geometry() {
    }

    static long sumOfAreas(int polygons, int seed) {
        double total = 0;
        for (int i = 0; i < polygons; ++i)
            total += area(polygon(i + seed));
        return (long) total;
    }

    static Point[] polygon(int seed) {
        final int corners = 3 + (seed & 3);
        final Point[] points = new Point[corners];
        for (int i = 0; i < corners; ++i)
            points[i] = new Point(((i + seed) * 7919 % 1000) / 1000.0, ((i * seed) * 104729 % 1000) / 1000.0);
        return points;
    }

    static double area(Point[] points) {
        double twice = 0;
        for (int i = 0; i < points.length; ++i)
            twice += points[i].cross(points[(i + 1) % points.length]);
        return Math.abs(twice) / 2;
    }
}

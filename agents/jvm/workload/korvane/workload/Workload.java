// A CPU-bound Java program for the agent's tests and measurements: hot loops
// over small methods that the JIT compilers inline, some of them generic.
package korvane.workload;

public final class Workload {
    public static void main(String[] args) {
        final int rounds = args.length > 0 ? Integer.parseInt(args[0]) : 150;
        final long begin = System.nanoTime();
        long checksum = 0;
        for (int round = 0; round < rounds; ++round) {
            checksum += Geometry.sumOfAreas(100_000, round);
            checksum += Words.score(8_000, round);
            checksum += Sorting.sortAndSum(16_000, round);
        }
        final long millis = (System.nanoTime() - begin) / 1_000_000;
        System.out.println("checksum " + checksum + " after " + rounds + " rounds in " + millis + " ms");
    }
}

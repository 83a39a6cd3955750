// Insertion sort of small blocks: a tight loop around compare and swap.
package korvane.workload;

final class Sorting {
    private Sorting() {
    }

    static long sortAndSum(int size, int seed) {
        final int[] values = new int[size];
        for (int i = 0; i < size; ++i)
            values[i] = mix(i + seed);
        for (int block = 0; block + 64 <= size; block += 64)
            sortBlock(values, block, block + 64);
        long sum = 0;
        for (int i = 0; i < size; i += 64)
            sum += values[i];
        return sum;
    }

    static void sortBlock(int[] values, int from, int to) {
        for (int i = from + 1; i < to; ++i)
            for (int j = i; j > from && less(values[j], values[j - 1]); --j)
                swap(values, j, j - 1);
    }

    static boolean less(int left, int right) {
        return left < right;
    }

    static void swap(int[] values, int left, int right) {
        final int kept = values[left];
        values[left] = values[right];
        values[right] = kept;
    }

    static int mix(int value) {
        int mixed = value * 0x9E3779B1;
        return mixed ^ (mixed >>> 15);
    }
}

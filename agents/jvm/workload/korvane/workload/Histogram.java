// A generic counter, so that the trace carries generic signatures.
package korvane.workload;

import java.util.HashMap;
import java.util.Map;

final class Histogram<K extends Comparable<K>> {
    private final Map<K, int[]> counts = new HashMap<>();

    void add(K key) {
        counts.computeIfAbsent(key, unused -> new int[1])[0]++;
    }

    int count(K key) {
        final int[] count = counts.get(key);
        return count == null ? 0 : count[0];
    }

    <T extends Number> long weighted(K key, T weight) {
        return count(key) * weight.longValue();
    }
}

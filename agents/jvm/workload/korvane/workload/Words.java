// Makes words and counts them: strings, hashing and a generic map.
package korvane.workload;

final class Words {
    private Words() {
    }

    static long score(int words, int seed) {
        final Histogram<String> histogram = new Histogram<>();
        long score = 0;
        for (int i = 0; i < words; ++i) {
            final String word = word(i * 31 + seed);
            histogram.add(word);
            score += histogram.weighted(word, Integer.valueOf(word.length()));
        }
        return score;
    }

    static String word(int seed) {
        final StringBuilder text = new StringBuilder();
        for (int i = 0; i < 3 + (seed & 3); ++i)
            text.append(letter(seed >>> i));
        return text.toString();
    }

    static char letter(int seed) {
        return (char) ('a' + (seed & 7));
    }
}

// Reads the text of `perf script -F pid,tid,time,period,ip,sym,dso [--ns]`, with or
// without call chains, and hands each sample on frame by frame.
#include "perf_script_parser.h"

#include <algorithm>
#include <cstring>
#include <limits>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace korvane_report {

namespace {

// Small enough that a chunk is still in the core's cache when it is parsed.
const std::size_t kChunk = 128 * 1024;
// comm, when printed, comes before the pid; it rarely holds more than a few blanks.
const std::size_t kHeadTokens = 8;
const std::uint64_t kNanosecondsPerSecond = 1000000000;
// Enough of a bad line to recognise it.
const std::size_t kShownBadText = 120;

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

// The next line break in [at, end), null if there is none. Lines are short and come by
// the million: sixteen bytes compared at once inline cost less than a call to memchr.
inline const char* lineEnd(const char* at, const char* end) {
#ifdef __SSE2__
    const __m128i breaks = _mm_set1_epi8('\n');
    for (; end - at >= 16; at += 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
        const int found = _mm_movemask_epi8(_mm_cmpeq_epi8(bytes, breaks));
        if (found != 0)
            return at + __builtin_ctz(static_cast<unsigned>(found));
    }
#endif
    return static_cast<const char*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at)));
}

inline std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

// The first blank-separated token; text is left behind it, blanks skipped.
inline std::string_view takeToken(std::string_view& text) {
    std::size_t end = 0;
    while (end < text.size() && !isBlank(text[end]))
        ++end;
    const std::string_view token = text.substr(0, end);
    text.remove_prefix(end);
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    return token;
}

inline bool parseDecimal(std::string_view text, std::uint64_t& value) {
    if (text.empty())
        return false;
    value = 0;
    for (char c : text) {
        if (c < '0' || c > '9')
            return false;
        const std::uint64_t digit = static_cast<std::uint64_t>(c - '0');
        const std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
        if (value > kMax / 10 || (value == kMax / 10 && digit > kMax % 10))
            return false;
        value = value * 10 + digit;
    }
    return true;
}

// Hex digit values, -1 for other bytes: frame lines are read by the million.
struct HexDigits {
    signed char value[256];
    constexpr HexDigits() : value() {
        for (int c = 0; c < 256; ++c)
            value[c] = -1;
        for (int digit = 0; digit < 16; ++digit) {
            value[static_cast<unsigned char>("0123456789abcdef"[digit])] = static_cast<signed char>(digit);
            value[static_cast<unsigned char>("0123456789ABCDEF"[digit])] = static_cast<signed char>(digit);
        }
    }
};
constexpr HexDigits kHexDigits;

// The hex number at the start of text, at most 16 digits; text is left behind it.
bool takeHex(std::string_view& text, std::uint64_t& value) {
    std::size_t count = 0;
    value = 0;
    for (; count < text.size(); ++count) {
        const int digit = kHexDigits.value[static_cast<unsigned char>(text[count])];
        if (digit < 0)
            break;
        value = value << 4 | static_cast<std::uint64_t>(digit);
    }
    text.remove_prefix(count);
    return count > 0 && count <= 16;
}

bool parseHex(std::string_view text, std::uint64_t& value) { return takeHex(text, value) && text.empty(); }

bool parseU32(std::string_view text, std::uint32_t& value) {
    std::uint64_t wide = 0;
    if (!parseDecimal(text, wide) || wide > std::numeric_limits<std::uint32_t>::max())
        return false;
    value = static_cast<std::uint32_t>(wide);
    return true;
}

// "PID/TID", or "PID" alone when perf was not asked for the tid.
bool parsePidTid(std::string_view token, PerfSampleHead& head) {
    const std::size_t slash = token.find('/');
    if (slash == std::string_view::npos)
        return parseU32(token, head.pid) && ((head.tid = head.pid), true);
    return parseU32(token.substr(0, slash), head.pid) && parseU32(token.substr(slash + 1), head.tid);
}

// "SECONDS.FRACTION:" with six (microseconds) or nine (--ns) digits after the point.
bool parseTime(std::string_view token, std::uint64_t& nanoseconds) {
    if (token.size() < 2 || token.back() != ':')
        return false;
    token.remove_suffix(1);
    const std::size_t point = token.find('.');
    if (point == std::string_view::npos)
        return false;
    const std::string_view fraction = token.substr(point + 1);
    std::uint64_t seconds = 0;
    std::uint64_t part = 0;
    if (fraction.size() > 9 || !parseDecimal(token.substr(0, point), seconds) || !parseDecimal(fraction, part))
        return false;
    for (std::size_t digits = fraction.size(); digits < 9; ++digits)
        part *= 10;
    if (seconds > (std::numeric_limits<std::uint64_t>::max() - part) / kNanosecondsPerSecond)
        return false;
    nanoseconds = seconds * kNanosecondsPerSecond + part;
    return true;
}

// perf writes a tab, then the address right-aligned in sixteen columns: runs of spaces go
// eight at a time.
void skipBlanks(std::string_view& text) {
    const std::uint64_t kSpaces = 0x2020202020202020ull;
    std::uint64_t word = 0;
    if (!text.empty() && text.front() == '\t')
        text.remove_prefix(1);
    while (text.size() >= sizeof(word) && (std::memcpy(&word, text.data(), sizeof(word)), word == kSpaces))
        text.remove_prefix(sizeof(word));
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
}

// Eight characters, the first in the lowest byte, read as lower-case hex digits all
// at once; false if any of them is something else.
inline bool wordAsHex(std::uint64_t word, std::uint32_t& value) {
    const std::uint64_t kOnes = 0x0101010101010101ull;
    const std::uint64_t nibbles = (word & 0x0f * kOnes) + 9 * ((word >> 6) & kOnes);
    const std::uint64_t tenOrMore = ((nibbles + 6 * kOnes) >> 4) & kOnes;
    // Only a digit or a lower-case letter is written back as the character it was read from.
    if (nibbles + 0x30 * kOnes + 0x27 * tenOrMore != word)
        return false;
    std::uint64_t packed = __builtin_bswap64(nibbles);
    packed = (packed | packed >> 4) & 0x00ff00ff00ff00ffull;
    packed = (packed | packed >> 8) & 0x0000ffff0000ffffull;
    value = static_cast<std::uint32_t>(packed | packed >> 16);
    return true;
}

// The word with its leading blanks made '0'; false when it holds blanks alone.
inline bool leadingBlanksAsZeros(std::uint64_t& word) {
    const std::uint64_t kLow7 = 0x7f7f7f7f7f7f7f7full;
    const std::uint64_t other = word ^ 0x2020202020202020ull;
    // 0x80 in each byte that is no blank.
    const std::uint64_t notBlank = (((other & kLow7) + kLow7) | other) & ~kLow7;
    if (notBlank == 0)
        return false;
    const int leading = __builtin_ctzll(notBlank) / 8;
    word += 0x1010101010101010ull & ((1ull << (8 * leading)) - 1);
    return true;
}

// perf's own layout: a tab, the address right-aligned in sixteen columns, a blank.
// Read sixteen characters at a time, as frame lines come by the million; text is left
// at the blank. False for any other layout, which the general reading then takes.
bool takeAlignedHex(std::string_view& text, std::uint64_t& value) {
    const std::size_t kColumns = 16;
    if (text.size() < kColumns + 2 || text[0] != '\t' || text[kColumns + 1] != ' ')
        return false;
    std::uint64_t high = 0;
    std::uint64_t low = 0;
    std::memcpy(&high, text.data() + 1, sizeof(high));
    std::memcpy(&low, text.data() + 1 + sizeof(high), sizeof(low));
    if (!leadingBlanksAsZeros(high)) {
        high = 0x3030303030303030ull;
        if (!leadingBlanksAsZeros(low))
            return false;
    }
    std::uint32_t highValue = 0;
    std::uint32_t lowValue = 0;
    if (!wordAsHex(high, highValue) || !wordAsHex(low, lowValue))
        return false;
    value = static_cast<std::uint64_t>(highValue) << 32 | lowValue;
    text.remove_prefix(kColumns + 1);
    return true;
}

// "HEXIP TEXT": the address of a frame and what follows it.
bool parseFrame(std::string_view text, PerfFrame& frame) {
    if (takeAlignedHex(text, frame.ip)) {
        frame.text = trimmed(text);
        return true;
    }
    skipBlanks(text);
    if (!takeHex(text, frame.ip) || (!text.empty() && !isBlank(text.front())))
        return false;
    frame.text = trimmed(text);
    return true;
}

} // namespace

PerfScriptParser::PerfScriptParser(PerfSampleSink& sink, bool strict) : m_sink(sink), m_strict(strict) {}

bool PerfScriptParser::feed(std::string_view text) {
    while (!text.empty() && !m_stopped) {
        const char* found = lineEnd(text.data(), text.data() + text.size());
        if (!found) {
            m_partial.append(text.data(), text.size());
            break;
        }
        const std::size_t length = static_cast<std::size_t>(found - text.data());
        if (m_partial.empty()) {
            line(text.substr(0, length));
        } else {
            m_partial.append(text.data(), length);
            line(m_partial);
            keepOpenFrames();
            m_partial.clear();
        }
        text.remove_prefix(length + 1);
    }
    keepOpenFrames();
    return !m_stopped;
}

// Copies the texts of the open sample's frames before the text they point into goes;
// once per piece of text fed, not once per frame.
void PerfScriptParser::keepOpenFrames() {
    if (!m_open || m_frames.empty())
        return;
    std::string kept;
    for (const PerfFrame& frame : m_frames)
        kept.append(frame.text.data(), frame.text.size());
    m_kept.swap(kept);
    std::size_t offset = 0;
    for (PerfFrame& frame : m_frames) {
        frame.text = std::string_view(m_kept.data() + offset, frame.text.size());
        offset += frame.text.size();
    }
}

void PerfScriptParser::finish() {
    if (!m_partial.empty() && !m_stopped)
        line(m_partial);
    if (m_open && !m_stopped)
        closeSample();
    m_partial.clear();
}

bool PerfScriptParser::read(std::istream& in) {
    std::string chunk(kChunk, '\0');
    while (!m_stopped && in) {
        in.read(&chunk[0], static_cast<std::streamsize>(chunk.size()));
        feed(std::string_view(chunk.data(), static_cast<std::size_t>(in.gcount())));
    }
    finish();
    return !m_stopped;
}

void PerfScriptParser::line(std::string_view text) {
    ++m_lineNumber;
    if (!text.empty() && text.front() == '\t') {
        frameLine(text);
        return;
    }
    // Blank lines end a sample; perf's --header lines start with '#'.
    if (trimmed(text).empty() || text.front() == '#') {
        if (m_open)
            closeSample();
        return;
    }
    if (m_open)
        closeSample();
    if (!headerLine(text))
        bad(m_lineNumber, text);
}

// Parsed in place in the frame list: a frame passed back through memory would stall
// each of the millions of frame lines on its reload.
void PerfScriptParser::frameLine(std::string_view text) {
    if (m_open) {
        m_frames.emplace_back();
        if (parseFrame(text, m_frames.back()))
            return;
        m_frames.pop_back();
    }
    bad(m_lineNumber, text);
}

bool PerfScriptParser::headerLine(std::string_view text) {
    std::string_view rest = trimmed(text);
    // The time and the token before it are all that is looked at, one pair after another.
    std::string_view previous;
    std::size_t count = 0;
    PerfSampleHead head;
    while (count < kHeadTokens && !rest.empty()) {
        const std::string_view token = takeToken(rest);
        const bool first = count++ == 0;
        if (first || !parseTime(token, head.time) || !parsePidTid(previous, head)) {
            previous = token;
            continue;
        }
        m_head = head;
        m_headLine = m_lineNumber;
        m_open = true;
        return headerRest(rest, m_head);
    }
    return false;
}

// After the time: nothing or the period when call chain lines follow; else the
// one frame, maybe behind the period. Whether there is a period is settled by
// the first sample, so that a symbol that reads like a number can't mislead later.
bool PerfScriptParser::headerRest(std::string_view rest, PerfSampleHead& head) {
    if (rest.empty())
        return true;
    std::string_view afterFirst = rest;
    const std::string_view first = takeToken(afterFirst);
    std::uint64_t number = 0;
    if (afterFirst.empty()) {
        head.hasPeriod = m_layout != plWithoutPeriod && parseDecimal(first, head.period);
        if (head.hasPeriod)
            m_layout = plWithPeriod;
        m_open = head.hasPeriod;
        return head.hasPeriod;
    }
    std::string_view afterSecond = afterFirst;
    const std::string_view second = takeToken(afterSecond);
    const bool looksPeriodic = parseDecimal(first, number) && parseHex(second, number) && !afterSecond.empty() &&
                               afterSecond.front() != '(';
    if (m_layout == plUnknown)
        m_layout = looksPeriodic ? plWithPeriod : plWithoutPeriod;
    head.hasPeriod = m_layout == plWithPeriod;
    PerfFrame frame{};
    if ((head.hasPeriod && !parseDecimal(first, head.period)) ||
        !parseFrame(head.hasPeriod ? afterFirst : rest, frame)) {
        m_open = false;
        return false;
    }
    m_frames.push_back(frame);
    closeSample();
    return true;
}

void PerfScriptParser::closeSample() {
    m_open = false;
    if (m_frames.empty()) {
        bad(m_headLine, "a sample without frames");
        return;
    }
    m_sink.sample(m_head, m_frames);
    m_frames.clear();
    ++m_samples;
}

void PerfScriptParser::bad(std::uint64_t number, std::string_view text) {
    if (m_badLines++ == 0) {
        m_firstBadLine = number;
        m_firstBadText.assign(text.data(), std::min(text.size(), kShownBadText));
    }
    m_stopped = m_strict;
}

} // namespace korvane_report

// Writing texts one after another into a block, each followed by a NUL.
#ifndef KORVANE_JITREADER_TERMINATED_TEXT_H
#define KORVANE_JITREADER_TERMINATED_TEXT_H

#include <cstring>
#include <string_view>

namespace korvane_3_10 {

// Writes the text and a NUL at out, which has room for both; returns where the next text goes.
inline char* appendTerminated(char* out, std::string_view text) {
    if (!text.empty())
        std::memcpy(out, text.data(), text.size());
    out[text.size()] = '\0';
    return out + text.size() + 1;
}

} // namespace korvane_3_10

#endif

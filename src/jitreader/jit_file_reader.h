// The loop that reads one .jit file into a data manager.
#ifndef KORVANE_JITREADER_JIT_FILE_READER_H
#define KORVANE_JITREADER_JIT_FILE_READER_H

#include "jitreader/jit_file_decoder.h"

namespace korvane_3_10 {

class JitDataManager;

class JitFileReader {
public:
    // Walks the file to its end and finalises the manager after a clean read;
    // returns meSuccess or the code that ended the file.
    static korvane_error_t readJitFile(JitFileDecoder& decoder, target_arch_t arch, JitDataManager& manager);
};

} // namespace korvane_3_10

#endif

// The catalogue of .jit files: hosts, processes, jit RVA ranges, and when files are read.
#ifndef KORVANE_JITREADER_JIT_FILES_MANAGER_H
#define KORVANE_JITREADER_JIT_FILES_MANAGER_H

#include "jitreader/file_range_index.h"

#include <korvane/interfaces.h>

#include <boost/filesystem/path.hpp>
#include <boost/thread/mutex.hpp>

#include <cstdint>
#include <deque>
#include <map>
#include <tuple>
#include <vector>

namespace korvane_3_10 {

class JitDataManager;

class JitFilesManager {
public:
    struct JitFileInfo {
        jit_rva_t m_startJitRva;
        u64_t m_size;
        ustring m_path;
    };

    // What tells that a file changed since it was last read.
    struct FileStamp {
        bool m_seen = false;
        u64_t m_size = 0;
        std::int64_t m_seconds = 0;
        std::int64_t m_nanoseconds = 0;
        bool operator==(const FileStamp& other) const {
            return std::tie(m_seen, m_size, m_seconds, m_nanoseconds) ==
                   std::tie(other.m_seen, other.m_size, other.m_seconds, other.m_nanoseconds);
        }
    };

    struct ProcessJitInfo {
        bool m_isRead = false;
        std::deque<JitFileInfo> m_files;
        // The code of the last failed reading and the stamps of the files it read;
        // meSuccess while no reading failed.
        korvane_error_t m_failure = meSuccess;
        std::vector<FileStamp> m_failureStamps;
    };

    typedef std::map<u32_t, ProcessJitInfo> ProcessMap;
    typedef std::map<u32_t, ProcessMap> HostProcessMap;

    JitFilesManager();
    JitFilesManager(const JitFilesManager&) = delete;
    JitFilesManager& operator=(const JitFilesManager&) = delete;

    korvane_error_t initialize(skeinkit2::generic_iterator_t<const char*>& paths, target_arch_t arch);
    korvane_error_t addJitFileInfo(const boost::filesystem::path& path, const ustring& name, u64_t& nextJitRva);
    korvane_error_t getJitFileRange(const char* jitFile, u64_t& start, u64_t& end) const;
    skeinkit2::generic_iterator_t<u32_t> getJitPidArray() const;
    ProcessJitInfo* getProcessJitInfo(u32_t pid, u32_t hostId);
    u32_t getHostID(const ustring& hostName) const;
    const char* getHostName(u32_t hostId) const;

    // All processes, taking what can be read; a failing file is only logged.
    korvane_error_t readJitFiles(decoding_mode_t mode, JitDataManager& dataManager);
    // One process on demand; a failing file's code is returned and the process stays unread,
    // and is read again only after one of its files changed (size or modification time).
    korvane_error_t readJitFiles(u32_t pid, u32_t hostId, decoding_mode_t mode, JitDataManager& dataManager);

    const HostProcessMap& processes() const { return m_processes; }

private:
    std::vector<const char*> m_hostNames;
    std::map<ustring, u32_t> m_hostIds;
    u32_t m_nextHostId;
    HostProcessMap m_processes;
    target_arch_t m_targetArch;
    boost::mutex m_readMutex;
    bool m_allFilesRead;
    mutable boost::mutex m_pidArrayMutex;
    mutable std::vector<u32_t> m_pidArray;
    // Refers to the paths of m_processes, whose deques keep their elements in place.
    FileRangeIndex m_fileRanges;
};

} // namespace korvane_3_10

#endif

// JitFilesManager's reading: when catalogued files are decoded into a data manager, under which lock.
#include "jitreader/jit_files_manager.h"

#include "jitreader/jit_data_manager.h"
#include "jitreader/jit_file_decoder.h"
#include "jitreader/jit_file_reader.h"
#include "jitreader/logging.h"
#include "jitreader/retrying_lock.h"

#include <sys/stat.h>

#include <exception>

KORVANE_DEFINE_FILE_LOGGER()

namespace korvane_3_10 {

namespace {

// What tells that a file changed: its size and modification time, or that it can't be seen.
JitFilesManager::FileStamp stampOf(const ustring& path) {
    JitFilesManager::FileStamp stamp;
    struct stat status;
    if (::stat(path.c_str(), &status) != 0)
        return stamp;
    stamp.m_seen = true;
    stamp.m_size = static_cast<u64_t>(status.st_size);
    stamp.m_seconds = static_cast<std::int64_t>(status.st_mtim.tv_sec);
    stamp.m_nanoseconds = static_cast<std::int64_t>(status.st_mtim.tv_nsec);
    return stamp;
}

// The one-process form tests the flag without the lock; these make the test
// and the final store a pair that other threads see in order.
bool isProcessRead(const JitFilesManager::ProcessJitInfo& info) {
    return __atomic_load_n(&info.m_isRead, __ATOMIC_ACQUIRE);
}

void markProcessRead(JitFilesManager::ProcessJitInfo& info) {
    __atomic_store_n(&info.m_isRead, true, __ATOMIC_RELEASE);
}

korvane_error_t readOneFile(const JitFilesManager::JitFileInfo& file, u32_t pid, u32_t hostId, decoding_mode_t mode,
                            target_arch_t arch, JitDataManager& dataManager) {
    // What the standard library or Boost throws (memory, a stream) ends the file
    // like a broken record; what was read before it stays.
    try {
        dataManager.noteFileStart(file.m_startJitRva);
        JitFileDecoder decoder(file.m_path, pid, hostId, file.m_startJitRva, mode);
        decoder.setSearchCallback(&dataManager);
        return JitFileReader::readJitFile(decoder, arch, dataManager);
    } catch (const std::exception& error) {
        KORVANE_LOG_ERROR("Couldn't read jit file " << file.m_path << " to its end: " << error.what());
        return meFileNotOpen;
    }
}

u64_t bytesOf(const std::deque<JitFilesManager::JitFileInfo>& files) {
    u64_t bytes = 0;
    for (const JitFilesManager::JitFileInfo& file : files)
        bytes += file.m_size;
    return bytes;
}

std::vector<JitFilesManager::FileStamp> stampsOf(const std::deque<JitFilesManager::JitFileInfo>& files) {
    std::vector<JitFilesManager::FileStamp> stamps;
    for (const JitFilesManager::JitFileInfo& file : files)
        stamps.push_back(stampOf(file.m_path));
    return stamps;
}

} // namespace

korvane_error_t JitFilesManager::readJitFiles(decoding_mode_t mode, JitDataManager& dataManager) {
    RetryingLock lock(m_readMutex);
    if (m_allFilesRead) {
        lock.unlock();
        return meSuccess;
    }
    u64_t bytes = 0;
    for (const auto& host : m_processes)
        for (const auto& process : host.second)
            if (!isProcessRead(process.second))
                bytes += bytesOf(process.second.m_files);
    dataManager.expectFileBytes(bytes);
    for (auto& host : m_processes) {
        for (auto& process : host.second) {
            ProcessJitInfo& info = process.second;
            if (isProcessRead(info))
                continue;
            // Marked before reading: this form takes what it can and never comes back.
            markProcessRead(info);
            for (const JitFileInfo& file : info.m_files) {
                if (file.m_path.empty()) {
                    KORVANE_LOG_ERROR("Skip reading jit file because path is empty");
                    continue;
                }
                if (readOneFile(file, process.first, host.first, mode, m_targetArch, dataManager) != meSuccess)
                    KORVANE_LOG_ERROR("Could not read jit file " << file.m_path);
            }
        }
    }
    dataManager.sealAfterReading();
    m_allFilesRead = true;
    lock.unlock();
    return meSuccess;
}

korvane_error_t JitFilesManager::readJitFiles(u32_t pid, u32_t hostId, decoding_mode_t mode,
                                              JitDataManager& dataManager) {
    ProcessJitInfo* info = getProcessJitInfo(pid, hostId);
    if (!info)
        return meNotFound;
    if (isProcessRead(*info))
        return meSuccess;

    RetryingLock lock(m_readMutex);
    if (isProcessRead(*info)) {
        lock.unlock();
        return meSuccess;
    }
    // Taken before reading, so that a file that changes while it is read is read again next time.
    std::vector<FileStamp> stamps = stampsOf(info->m_files);
    // A failed process is read again only when one of its files changed since:
    // until then each query costs a look at the files, not a reading.
    if (info->m_failure != meSuccess && stamps == info->m_failureStamps) {
        lock.unlock();
        return info->m_failure;
    }
    dataManager.expectFileBytes(bytesOf(info->m_files));
    for (const JitFileInfo& file : info->m_files) {
        // The decoder lives inside readOneFile, so it is gone before the lock goes on every way out.
        const korvane_error_t result = file.m_path.empty()
                                           ? meInvalidArgument
                                           : readOneFile(file, pid, hostId, mode, m_targetArch, dataManager);
        if (result != meSuccess) {
            info->m_failure = result;
            info->m_failureStamps.swap(stamps);
            lock.unlock();
            return result;
        }
    }
    // Set only now: a failed read leaves the process to be read again from its first file.
    info->m_failure = meSuccess;
    info->m_failureStamps.clear();
    dataManager.indexProcess(pid, hostId);
    markProcessRead(*info);
    lock.unlock();
    return meSuccess;
}

} // namespace korvane_3_10

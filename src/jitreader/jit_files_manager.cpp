// The catalogue of .jit files: hosts, processes and jit RVA ranges.
#include "jitreader/jit_files_manager.h"

#include "jitreader/logging.h"

#include <boost/filesystem/operations.hpp>
#include <boost/thread/lock_guard.hpp>

#include <set>
#include <sstream>
#include <string>

KORVANE_DEFINE_FILE_LOGGER()

namespace korvane_3_10 {

namespace {

// Why an entry named *.jit that is no regular file is left out, in words.
std::string whyNotRegular(const boost::filesystem::path& path, const boost::filesystem::file_status& status,
                          const boost::system::error_code& error) {
    namespace fs = boost::filesystem;
    switch (status.type()) {
    case fs::directory_file: return "it is a directory, not a regular file";
    case fs::fifo_file: return "it is a FIFO, not a regular file";
    case fs::socket_file: return "it is a socket, not a regular file";
    case fs::block_file:
    case fs::character_file: return "it is a device, not a regular file";
    case fs::file_not_found: {
        boost::system::error_code ignored;
        return fs::is_symlink(fs::symlink_status(path, ignored)) ? "it is a link that leads nowhere, not a regular file"
                                                                 : "it is gone";
    }
    case fs::status_error: return "its type can't be read: " + error.message();
    default: return "it is not a regular file";
    }
}

// The regular .jit files directly in one directory, by name in byte order, links
// followed; any other *.jit entry is named in a warning and left out.
korvane_error_t jitFilesIn(const boost::filesystem::path& directory,
                           std::map<ustring, boost::filesystem::path>& files) {
    namespace fs = boost::filesystem;
    std::map<ustring, fs::path> entries;
    boost::system::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error)) {
        const ustring name = entry->path().filename().string();
        if (isTraceFileName(name))
            entries[name] = entry->path();
    }
    if (error) {
        KORVANE_LOG_ERROR("Couldn't list the directory " << directory.string() << ": " << error.message());
        return meFileNotOpen;
    }
    for (const auto& entry : entries) {
        boost::system::error_code statusError;
        const fs::file_status status = fs::status(entry.second, statusError);
        if (status.type() == fs::regular_file)
            files.insert(entry);
        else
            KORVANE_LOG_WARN("Skipped jit file " << entry.second.string() << " because "
                                                 << whyNotRegular(entry.second, status, statusError));
    }
    return meSuccess;
}

} // namespace

JitFilesManager::JitFilesManager() : m_nextHostId(1), m_targetArch(taAny), m_allFilesRead(false) {}

korvane_error_t JitFilesManager::initialize(skeinkit2::generic_iterator_t<const char*>& paths, target_arch_t arch) {
    KORVANE_TRACE_SCOPE();
    m_hostNames.push_back(nullptr);
    m_targetArch = arch;
    u64_t nextJitRva = 1;

    // Sorted by bytes, and textual doubles scanned once.
    std::set<ustring> directories;
    for (; !paths.at_end(); paths.next())
        directories.insert(ustring(paths.current()));

    for (const ustring& directory : directories) {
        boost::system::error_code error;
        const boost::filesystem::file_status status = boost::filesystem::status(directory, error);
        if (status.type() == boost::filesystem::status_error) {
            KORVANE_LOG_ERROR("Couldn't list the directory " << directory << ": " << error.message());
            return meFileNotOpen;
        }
        if (status.type() != boost::filesystem::directory_file)
            return meNotADirectory;
        std::map<ustring, boost::filesystem::path> files;
        const korvane_error_t listed = jitFilesIn(directory, files);
        if (listed != meSuccess)
            return listed;
        for (const auto& file : files) {
            const korvane_error_t result = addJitFileInfo(file.second, file.first, nextJitRva);
            if (result != meSuccess)
                return result;
        }
    }
    return meSuccess;
}

korvane_error_t JitFilesManager::addJitFileInfo(const boost::filesystem::path& path, const ustring& name,
                                                u64_t& nextJitRva) {
    KORVANE_TRACE_SCOPE();
    u32_t pid = 0;
    ustring hostName;
    const korvane_error_t result = parseTraceFileName(name, pid, hostName);
    if (result != meSuccess)
        return result;
    boost::system::error_code error;
    const u64_t size = boost::filesystem::file_size(path, error);
    if (error) {
        KORVANE_LOG_WARN("Skipped jit file " << path.string() << " because its size can't be read: "
                                             << error.message());
        return meSuccess;
    }

    auto host = m_hostIds.find(hostName);
    if (host == m_hostIds.end()) {
        host = m_hostIds.insert(std::make_pair(hostName, m_nextHostId)).first;
        m_hostNames.push_back(host->first.c_str());
        ++m_nextHostId;
    }

    ProcessJitInfo& process = m_processes[host->second][pid];
    // A process that gets a new file counts as unread, even if it was read before.
    process.m_isRead = false;
    JitFileInfo file;
    file.m_startJitRva = nextJitRva;
    file.m_size = size;
    file.m_path = path.string();
    process.m_files.push_back(file);
    m_fileRanges.add(process.m_files.back().m_path, file.m_startJitRva, file.m_startJitRva + file.m_size);

    nextJitRva += file.m_size;
    return meSuccess;
}

korvane_error_t JitFilesManager::getJitFileRange(const char* jitFile, u64_t& start, u64_t& end) const {
    KORVANE_TRACE_SCOPE();
    // The path as the scan spelled it is found at once; other spellings take the long way.
    if (m_fileRanges.find(jitFile, start, end))
        return meSuccess;
    const boost::filesystem::path path(jitFile);
    u32_t pid = 0;
    ustring hostName;
    // A name that doesn't parse leaves the host name empty, and nothing is found.
    parseTraceFileName(path.filename().string(), pid, hostName);

    const auto host = m_processes.find(getHostID(hostName));
    if (host == m_processes.end())
        return meFileNotCatalogued;
    const auto process = host->second.find(pid);
    if (process == host->second.end())
        return meFileNotCatalogued;

    for (const JitFileInfo& file : process->second.m_files) {
        if (boost::filesystem::path(file.m_path).compare(path) != 0)
            continue;
        start = file.m_startJitRva;
        end = file.m_startJitRva + file.m_size;
        return meSuccess;
    }
    return meFileNotCatalogued;
}

skeinkit2::generic_iterator_t<u32_t> JitFilesManager::getJitPidArray() const {
    // The test stays outside the lock: callers that go parallel ask once before.
    if (m_pidArray.empty()) {
        boost::lock_guard<boost::mutex> lock(m_pidArrayMutex);
        for (const auto& host : m_processes)
            for (const auto& process : host.second)
                m_pidArray.push_back(process.first);
    }
    typedef skeinkit2::iterutil::stl_iterator_impl_t<u32_t, std::vector<u32_t>::const_iterator> PidWalk;
    return skeinkit2::generic_iterator_t<u32_t>(PidWalk(m_pidArray.begin(), m_pidArray.end()));
}

JitFilesManager::ProcessJitInfo* JitFilesManager::getProcessJitInfo(u32_t pid, u32_t hostId) {
    const auto host = m_processes.find(hostId);
    if (host == m_processes.end())
        return nullptr;
    const auto process = host->second.find(pid);
    return process == host->second.end() ? nullptr : &process->second;
}

u32_t JitFilesManager::getHostID(const ustring& hostName) const {
    const auto host = m_hostIds.find(hostName);
    return host == m_hostIds.end() ? 0 : host->second;
}

const char* JitFilesManager::getHostName(u32_t hostId) const {
    if (hostId == 0 || hostId >= m_hostNames.size())
        return nullptr;
    return m_hostNames[hostId];
}

} // namespace korvane_3_10

// The catalogue of .jit files: hosts, processes, jit RVA ranges, and when files are read.
#include "jitreader/jit_files_manager.h"

#include "jitreader/jit_data_manager.h"
#include "jitreader/jit_file_decoder.h"
#include "jitreader/jit_file_reader.h"
#include "jitreader/logging.h"
#include "jitreader/retrying_lock.h"

#include <boost/filesystem/operations.hpp>
#include <boost/thread/lock_guard.hpp>
#include <boost/tokenizer.hpp>

#include <set>
#include <sstream>

KORVANE_DEFINE_FILE_LOGGER()

namespace korvane_3_10 {

namespace {

typedef boost::tokenizer<boost::char_separator<char> > Tokenizer;

const char kJitSuffix[] = ".jit";
const std::size_t kJitSuffixLength = sizeof(kJitSuffix) - 1;

bool hasJitSuffix(const ustring& name) {
    return name.size() > kJitSuffixLength &&
           name.compare(name.size() - kJitSuffixLength, kJitSuffixLength, kJitSuffix) == 0;
}

// The process id is the first dash-separated part of the process token. A part
// that holds no number leaves pid alone; "12ab" gives 12.
void readProcessId(const ustring& processToken, u32_t& pid) {
    const boost::char_separator<char> dash("-");
    const Tokenizer parts(processToken, dash);
    if (parts.begin() == parts.end())
        return;
    std::stringstream stream(*parts.begin());
    stream >> pid;
}

// The .jit files directly in one directory, by name in byte order.
std::map<ustring, boost::filesystem::path> jitFilesIn(const boost::filesystem::path& directory) {
    std::map<ustring, boost::filesystem::path> files;
    for (boost::filesystem::directory_iterator entry(directory), end; entry != end; ++entry) {
        if (boost::filesystem::is_directory(boost::filesystem::status(entry->path())))
            continue;
        const ustring name = entry->path().filename().string();
        if (!hasJitSuffix(name))
            continue;
        files[name] = entry->path();
    }
    return files;
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
        if (!boost::filesystem::is_directory(boost::filesystem::status(directory)))
            return meNotADirectory;
        for (const auto& file : jitFilesIn(directory)) {
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
    const korvane_error_t result = parseJitFileName(name, pid, hostName);
    if (result != meSuccess)
        return result;

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
    file.m_size = boost::filesystem::file_size(path);
    file.m_path = path.string();
    process.m_files.push_back(file);

    nextJitRva += file.m_size;
    return meSuccess;
}

korvane_error_t JitFilesManager::getJitFileRange(const char* jitFile, u64_t& start, u64_t& end) const {
    KORVANE_TRACE_SCOPE();
    const boost::filesystem::path path(jitFile);
    u32_t pid = 0;
    ustring hostName;
    // A name that doesn't parse leaves the host name empty, and nothing is found.
    parseJitFileName(path.filename().string(), pid, hostName);

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

korvane_error_t JitFilesManager::parseJitFileName(const ustring& name, u32_t& pid, ustring& hostName) const {
    if (name.empty())
        return meNotFound;
    const boost::char_separator<char> dot(".");
    const Tokenizer tokens(name, dot);
    Tokenizer::iterator processToken = tokens.begin();
    Tokenizer::iterator lookahead = tokens.begin();
    for (int step = 0; step < 2 && lookahead != tokens.end(); ++step)
        ++lookahead;
    if (lookahead == tokens.end())
        return meNotFound;
    for (; lookahead != tokens.end(); ++lookahead)
        ++processToken;

    const ustring process = *processToken;
    readProcessId(process, pid);
    ++processToken;
    const std::size_t lastTokenLength = processToken->size();
    // Counts exactly two dots before the two tokens: "alpha..4711.jit" keeps "alpha.".
    hostName.assign(name, 0, name.size() - 2 - process.size() - lastTokenLength);
    return meSuccess;
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

// ---------------------------------------------------------------------------
// Reading orchestration

namespace {

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
    JitFileDecoder decoder(file.m_path, pid, hostId, file.m_startJitRva, mode);
    decoder.setSearchCallback(&dataManager);
    return JitFileReader::readJitFile(decoder, arch, dataManager);
}

} // namespace

korvane_error_t JitFilesManager::readJitFiles(decoding_mode_t mode, JitDataManager& dataManager) {
    RetryingLock lock(m_readMutex);
    if (m_allFilesRead) {
        lock.unlock();
        return meSuccess;
    }
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
    for (const JitFileInfo& file : info->m_files) {
        if (file.m_path.empty()) {
            lock.unlock();
            return meInvalidArgument;
        }
        // The decoder lives inside readOneFile, so it is gone before the lock goes on every way out.
        const korvane_error_t result = readOneFile(file, pid, hostId, mode, m_targetArch, dataManager);
        if (result != meSuccess) {
            lock.unlock();
            return result;
        }
    }
    // Set only now: a failed read leaves the process to be read again from its first file.
    markProcessRead(*info);
    lock.unlock();
    return meSuccess;
}

} // namespace korvane_3_10

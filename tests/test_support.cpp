// Shared helpers of the tests: temporary trace directories and log capture.
#include "test_support.h"

#include <boost/filesystem/operations.hpp>

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <mutex>
#include <utility>

namespace korvane_test {

TempDir::TempDir() : TempDir(boost::filesystem::temp_directory_path()) {}

TempDir::TempDir(const boost::filesystem::path& base)
    : m_path(base / boost::filesystem::unique_path("korvane-test-%%%%-%%%%-%%%%")) {
    boost::filesystem::create_directories(m_path);
}

TempDir::~TempDir() {
    boost::system::error_code ignored;
    boost::filesystem::remove_all(m_path, ignored);
}

std::string TempDir::write(const std::string& name, const korvane_tracewriter::TraceWriter& trace) const {
    const std::string path = file(name);
    trace.writeTo(path);
    return path;
}

std::string TempDir::mkdir(const std::string& name) const {
    const boost::filesystem::path path = m_path / name;
    boost::filesystem::create_directories(path);
    return path.string();
}

bool makeSocket(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        return false;
    path.copy(address.sun_path, path.size());
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    const bool made = ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return made;
}

PathList::PathList(std::vector<std::string> paths) : m_paths(std::move(paths)) {
    for (const std::string& path : m_paths)
        m_texts.push_back(path.c_str());
    skeinkit2::iterutil::stl_iterator_impl_t<const char*, std::vector<const char*>::const_iterator> handler(
        m_texts.begin(), m_texts.end());
    m_iterator = skeinkit2::generic_iterator_t<const char*>(handler);
}

namespace {

class CaptureAppender : public log4cplus::Appender {
public:
    ~CaptureAppender() override { destructorImpl(); }
    void close() override {}

    std::vector<std::pair<int, std::string> > events() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_events;
    }
    void clear() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_events.clear();
    }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_events.emplace_back(event.getLogLevel(), event.getMessage());
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::pair<int, std::string> > m_events;
};

} // namespace

struct LogCapture::Impl {
    log4cplus::Logger logger = log4cplus::Logger::getInstance("korvane.jitreader");
    log4cplus::SharedAppenderPtr appender{new CaptureAppender()};
    log4cplus::LogLevel oldLevel = log4cplus::NOT_SET_LOG_LEVEL;

    CaptureAppender& capture() const { return static_cast<CaptureAppender&>(*appender); }
};

LogCapture::LogCapture(int level) : m_impl(new Impl) {
    m_impl->oldLevel = m_impl->logger.getLogLevel();
    m_impl->logger.setLogLevel(level);
    m_impl->logger.addAppender(m_impl->appender);
}

LogCapture::~LogCapture() {
    m_impl->logger.removeAppender(m_impl->appender);
    m_impl->logger.setLogLevel(m_impl->oldLevel);
    delete m_impl;
}

std::vector<std::string> LogCapture::messages() const {
    std::vector<std::string> result;
    for (const auto& event : m_impl->capture().events())
        result.push_back(event.second);
    return result;
}

std::vector<std::string> LogCapture::messages(int level) const {
    std::vector<std::string> result;
    for (const auto& event : m_impl->capture().events())
        if (event.first == level)
            result.push_back(event.second);
    return result;
}

bool LogCapture::contains(const std::string& text) const { return count(text) != 0; }

std::size_t LogCapture::count(const std::string& text) const {
    std::size_t found = 0;
    for (const auto& event : m_impl->capture().events())
        if (event.second.find(text) != std::string::npos)
            ++found;
    return found;
}

void LogCapture::clear() { m_impl->capture().clear(); }

} // namespace korvane_test

// Turns the frames of samples into locations: JIT code into its method and inlines
// with source lines, other code into perf's symbol and module. Each distinct
// process, address and span of time in which the code there stays is resolved once.
#include "frame_resolver.h"

#include "inline_chain.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdint>

namespace korvane_report {

using namespace korvane_3_10;

namespace {

const char kUnknown[] = "[unknown]";

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && text.front() == ' ')
        text.remove_prefix(1);
    while (!text.empty() && text.back() == ' ')
        text.remove_suffix(1);
    return text;
}

// "symbol (module)": the module is the last parenthesised part, which may hold parentheses itself.
void splitPerfText(std::string_view text, std::string_view& symbol, std::string_view& module) {
    symbol = trimmed(text);
    module = std::string_view();
    if (symbol.empty() || symbol.back() != ')')
        return;
    int depth = 0;
    for (std::size_t i = symbol.size(); i-- > 0;) {
        depth += symbol[i] == ')' ? 1 : symbol[i] == '(' ? -1 : 0;
        if (depth != 0)
            continue;
        module = symbol.substr(i + 1, symbol.size() - i - 2);
        symbol = trimmed(symbol.substr(0, i));
        return;
    }
}

// An unknown symbol is named after its module, so that such frames still group by library.
std::string perfName(std::string_view symbol, std::string_view module) {
    if (!symbol.empty() && symbol != kUnknown)
        return std::string(symbol);
    if (module.empty() || module == kUnknown)
        return kUnknown;
    const std::size_t slash = module.rfind('/');
    return "[" + std::string(slash == std::string_view::npos ? module : module.substr(slash + 1)) + "]";
}

std::string machineHostName() {
    char name[HOST_NAME_MAX + 1] = {};
    if (gethostname(name, sizeof(name) - 1) != 0)
        return std::string();
    return name;
}

} // namespace

FrameResolver::FrameResolver(boost::intrusive_ptr<IJitLoader> loader, boost::intrusive_ptr<ISymbolResolver> resolver)
    : m_loader(std::move(loader)), m_resolver(std::move(resolver)), m_timeline(*m_resolver) {}

std::unique_ptr<FrameResolver> FrameResolver::create(boost::intrusive_ptr<IJitLoader> loader,
                                                     boost::intrusive_ptr<ISymbolResolver> resolver) {
    if (!loader || !resolver)
        return nullptr;
    return std::unique_ptr<FrameResolver>(new FrameResolver(std::move(loader), std::move(resolver)));
}

std::string FrameResolver::defaultHost(ISymbolResolver& resolver) {
    const char* first = nullptr;
    const char* second = nullptr;
    resolver.getHostNameById(1, &first);
    resolver.getHostNameById(2, &second);
    return first && !second ? std::string(first) : machineHostName();
}

std::uint32_t FrameResolver::host(const std::string& name) {
    for (std::uint32_t index = 0; index < m_hosts.size(); ++index) {
        if (m_hosts[index].name == name)
            return index;
    }
    u32_t loaderId = 0;
    m_loader->getHostIdByName(name.c_str(), &loaderId);
    m_hosts.push_back(Host{name, loaderId});
    return static_cast<std::uint32_t>(m_hosts.size() - 1);
}

const FrameResolver::Process& FrameResolver::process(std::uint32_t host, std::uint32_t pid) {
    const std::uint64_t key = std::uint64_t{host} << 32 | pid;
    const auto found = m_processes.find(key);
    if (found != m_processes.end())
        return found->second;
    const Process added{static_cast<std::uint32_t>(m_processes.size()), host, pid, m_hosts[host].loaderId,
                        m_timeline.process(m_hosts[host].name, pid)};
    return m_processes.emplace(key, added).first->second;
}

void FrameResolver::beginSample(std::uint32_t host, std::uint32_t pid, std::uint64_t time) {
    if (!m_process || m_process->pid != pid || m_process->host != host)
        m_process = &process(host, pid);
    m_time = time;
}

std::uint32_t FrameResolver::locateAnew(std::uint64_t address, std::string_view perfText) {
    const CodeTimeline::Window window = m_process->code ? CodeTimeline::windowAt(*m_process->code, address, m_time)
                                                        : CodeTimeline::Window{0, UINT64_MAX, false};
    std::uint32_t location = 0;
    if (!m_windows.find(m_process->index, address, window.begin, location)) {
        location = static_cast<std::uint32_t>(m_locations.size());
        m_locations.push_back(resolve(address, window.everCode, perfText));
        m_windows.add(m_process->index, address, window.begin, location);
    }
    m_cache.put(address, m_process->index, location, LocationCache::Window{window.begin, window.end});
    return location;
}

// An address that no region of the traces ever held is outside JIT code without asking:
// native frames make up most of a profile's addresses.
Location FrameResolver::resolve(std::uint64_t address, bool everCode, std::string_view perfText) {
    if (!m_process->code)
        return perfLocation(address, perfText, loUntraced, fkNative);
    if (!everCode)
        return perfLocation(address, perfText, loOutside, fkNative);
    jit_rva_t rva = 0;
    IModule::Ptr module;
    if (m_loader->resolveJitPoint(m_time, address, m_process->pid, m_process->loaderHost, &rva, module) !=
        meSuccess)
        return perfLocation(address, perfText, loOutside, fkNative);
    return jitLocation(address, rva, perfText);
}

Location FrameResolver::jitLocation(std::uint64_t address, jit_rva_t rva, std::string_view perfText) {
    const std::vector<SourceFrame> chain = InlineChain::at(*m_resolver, rva);
    if (chain.empty())
        return perfLocation(address, perfText, loUnnamed, fkJit);
    Location location;
    location.address = address;
    location.outcome = loResolved;
    for (const SourceFrame& source : chain) {
        Frame frame;
        frame.name = m_strings.intern(source.method);
        frame.file = m_strings.intern(source.sourceFile);
        frame.line = source.line;
        frame.module = m_strings.intern(source.module);
        frame.kind = location.frames.empty() ? fkJit : fkInlined;
        location.frames.push_back(frame);
    }
    return location;
}

Location FrameResolver::perfLocation(std::uint64_t address, std::string_view perfText, location_outcome_t outcome,
                                     frame_kind_t kind) {
    std::string_view symbol;
    std::string_view module;
    splitPerfText(perfText, symbol, module);
    Frame frame;
    frame.name = m_strings.intern(perfName(symbol, module));
    frame.module = m_strings.intern(module);
    frame.kind = kind == fkNative && module.compare(0, 7, "[kernel") == 0 ? fkKernel : kind;
    Location location;
    location.address = address;
    location.outcome = outcome;
    location.frames.push_back(frame);
    return location;
}

} // namespace korvane_report

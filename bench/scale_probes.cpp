// Query inputs of the scale benchmarks and the flat sorted-array lookups they are judged against.
#include "scale_probes.h"

#include <boost/filesystem/operations.hpp>

#include <algorithm>
#include <random>

namespace korvane_bench {

namespace {

using korvane_3_10::jit_rva_t;

std::uint64_t processKey(std::uint32_t hostId, std::uint32_t pid) { return (std::uint64_t(hostId) << 32) | pid; }

// The index of the entry whose range [start, start + length) holds the value, or -1.
std::ptrdiff_t flatFind(const std::vector<std::uint64_t>& starts, const std::vector<std::uint32_t>& lengths,
                        std::uint64_t value) {
    const auto after = std::upper_bound(starts.begin(), starts.end(), value);
    if (after == starts.begin())
        return -1;
    const std::ptrdiff_t index = after - starts.begin() - 1;
    return value - starts[index] < lengths[index] ? index : -1;
}

} // namespace

ScaleProbes ScaleProbes::create(korvane_3_10::ISymbolResolver& resolver, const std::vector<std::string>& files,
                                std::size_t count, std::uint64_t seed) {
    ScaleProbes probes;
    for (auto symbols = resolver.getSymbols(); !symbols.at_end(); symbols.next()) {
        const korvane_3_10::ISymbol::Ptr symbol = symbols.current();
        for (auto regions = symbol->getRegions(); !regions.at_end(); regions.next()) {
            const korvane_3_10::ICodeRegion::Ptr region = regions.current();
            probes.m_rows.push_back({region->getStartJitRva(), region->getLength(), region->getStartVirtualAddress(),
                                     region->getLoadTime(), region->getUnloadTime(), region->getProcessId(),
                                     region->getHostID(), symbol.get()});
        }
    }
    probes.indexRows();
    probes.drawProbes(resolver, files, count, seed);
    return probes;
}

void ScaleProbes::indexRows() {
    std::sort(m_rows.begin(), m_rows.end(), [](const Row& a, const Row& b) { return a.jitRva < b.jitRva; });
    for (const Row& row : m_rows) {
        m_rvaStarts.push_back(row.jitRva);
        m_rvaLengths.push_back(row.length);
        m_rvaOwners.push_back(row.owner);
    }
    std::vector<const Row*> byAddress;
    for (const Row& row : m_rows)
        byAddress.push_back(&row);
    std::sort(byAddress.begin(), byAddress.end(), [](const Row* a, const Row* b) {
        const std::uint64_t keyA = processKey(a->hostId, a->pid);
        const std::uint64_t keyB = processKey(b->hostId, b->pid);
        return keyA != keyB ? keyA < keyB : a->address < b->address;
    });
    for (const Row* row : byAddress) {
        const std::uint64_t key = processKey(row->hostId, row->pid);
        if (m_processes.empty() || m_processes.back().key != key)
            m_processes.push_back(ProcessRows{key, {}, {}, {}});
        m_processes.back().starts.push_back(row->address);
        m_processes.back().lengths.push_back(row->length);
        m_processes.back().owners.push_back(row->owner);
    }
}

ScaleProbes::PointProbe ScaleProbes::pointIn(const Row& row, std::uint32_t offset) const {
    // Half-way through the region's life, or just after its load when it lives on.
    const std::uint64_t time =
        row.unloadTime > row.loadTime ? row.loadTime + (row.unloadTime - row.loadTime) / 2 : row.loadTime + 1;
    return PointProbe{time, row.address + offset, row.pid, row.hostId};
}

void ScaleProbes::drawProbes(korvane_3_10::ISymbolResolver& resolver, const std::vector<std::string>& files,
                             std::size_t count, std::uint64_t seed) {
    if (m_rows.empty())
        return;
    std::mt19937_64 random(seed);
    for (std::size_t index = 0; index < count; ++index) {
        const Row& row = m_rows[random() % m_rows.size()];
        const std::uint32_t offset = static_cast<std::uint32_t>(random() % row.length);
        m_rvaProbes.push_back(row.jitRva + offset);
        m_pointProbes.push_back(pointIn(row, offset));
    }
    for (const ProcessRows& process : m_processes)
        m_firstProbes.push_back(PointProbe{~0ull >> 1, process.starts.front(), std::uint32_t(process.key),
                                           std::uint32_t(process.key >> 32)});

    // Each file's jit RVAs begin where the catalogue put it: after the sizes of the files before it.
    std::vector<std::uint64_t> fileStarts;
    std::uint64_t next = 1;
    for (const std::string& file : files) {
        fileStarts.push_back(next);
        next += boost::filesystem::file_size(file);
    }
    for (std::size_t index = 0; index < count && !fileStarts.empty(); ++index) {
        const std::size_t rowIndex = random() % m_rows.size();
        const Row& row = m_rows[rowIndex];
        const std::size_t file = std::upper_bound(fileStarts.begin(), fileStarts.end(), row.jitRva) - fileStarts.begin() - 1;
        const std::size_t first = std::lower_bound(m_rvaStarts.begin(), m_rvaStarts.end(), fileStarts[file]) -
                                  m_rvaStarts.begin();
        const TranslateProbe probe{static_cast<std::uint32_t>(rowIndex - first + 1), row.address + row.length / 2,
                                   files[file].c_str()};
        jit_rva_t jitRva = 0;
        // Kept only when the library agrees: the probe must stand for a real conversion.
        if (resolver.translateToJitRva(probe.jitId, probe.address, probe.file, &jitRva) == meSuccess &&
            jitRva == row.jitRva + row.length / 2)
            m_translateProbes.push_back(probe);
    }
}

const void* ScaleProbes::flatSymbol(jit_rva_t jitRva) const {
    const std::ptrdiff_t index = flatFind(m_rvaStarts, m_rvaLengths, jitRva);
    return index < 0 ? nullptr : m_rvaOwners[index];
}

const void* ScaleProbes::flatPoint(const PointProbe& probe) const {
    const std::uint64_t key = processKey(probe.hostId, probe.pid);
    const auto process = std::lower_bound(m_processes.begin(), m_processes.end(), key,
                                          [](const ProcessRows& rows, std::uint64_t wanted) { return rows.key < wanted; });
    if (process == m_processes.end() || process->key != key)
        return nullptr;
    const std::ptrdiff_t index = flatFind(process->starts, process->lengths, probe.address);
    return index < 0 ? nullptr : process->owners[index];
}

} // namespace korvane_bench

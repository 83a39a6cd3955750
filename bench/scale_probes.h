// Query inputs of the scale benchmarks and the flat sorted-array lookups they are judged against.
#ifndef KORVANE_BENCH_SCALE_PROBES_H
#define KORVANE_BENCH_SCALE_PROBES_H

#include <korvane/jitreader.h>

#include <cstdint>
#include <string>
#include <vector>

namespace korvane_bench {

class ScaleProbes {
public:
    struct PointProbe {
        std::uint64_t time;
        std::uint64_t address;
        std::uint32_t pid;
        std::uint32_t hostId;
    };
    struct TranslateProbe {
        std::uint32_t jitId;
        std::uint64_t address;
        const char* file;
    };

    // `count` probes of each kind (a power of two), drawn for the seed from the
    // top-level regions; `files` are the catalogued files in their order.
    static ScaleProbes create(korvane_3_10::ISymbolResolver& resolver, const std::vector<std::string>& files,
                              std::size_t count, std::uint64_t seed);

    const std::vector<korvane_3_10::jit_rva_t>& rvaProbes() const { return m_rvaProbes; }
    const std::vector<PointProbe>& pointProbes() const { return m_pointProbes; }
    // One probe in each process, for the loader's first queries.
    const std::vector<PointProbe>& firstProbes() const { return m_firstProbes; }
    const std::vector<TranslateProbe>& translateProbes() const { return m_translateProbes; }

    // The region's owner by a binary search over a flat array of the regions by jit RVA.
    const void* flatSymbol(korvane_3_10::jit_rva_t jitRva) const;
    // The same by process, then address, over flat arrays of each process's regions.
    const void* flatPoint(const PointProbe& probe) const;

private:
    struct Row {
        korvane_3_10::jit_rva_t jitRva;
        std::uint32_t length;
        std::uint64_t address;
        std::uint64_t loadTime;
        std::uint64_t unloadTime;
        std::uint32_t pid;
        std::uint32_t hostId;
        const void* owner;
    };
    struct ProcessRows {
        std::uint64_t key;
        std::vector<std::uint64_t> starts;
        std::vector<std::uint32_t> lengths;
        std::vector<const void*> owners;
    };

    void indexRows();
    void drawProbes(korvane_3_10::ISymbolResolver& resolver, const std::vector<std::string>& files, std::size_t count,
                    std::uint64_t seed);
    PointProbe pointIn(const Row& row, std::uint32_t offset) const;

    std::vector<Row> m_rows;
    std::vector<std::uint64_t> m_rvaStarts;
    std::vector<std::uint32_t> m_rvaLengths;
    std::vector<const void*> m_rvaOwners;
    std::vector<ProcessRows> m_processes;
    std::vector<korvane_3_10::jit_rva_t> m_rvaProbes;
    std::vector<PointProbe> m_pointProbes;
    std::vector<PointProbe> m_firstProbes;
    std::vector<TranslateProbe> m_translateProbes;
};

} // namespace korvane_bench

#endif

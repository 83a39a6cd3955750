// Writes jitdump files in either byte order, including the broken forms a reader must survive.
#ifndef KORVANE_TESTS_JITDUMP_WRITER_H
#define KORVANE_TESTS_JITDUMP_WRITER_H

#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace korvane_test {

struct JitdumpLine {
    std::uint64_t address;
    std::int32_t line;
    std::string file; // "\xff" repeats the file of the entry before
};

class JitdumpWriter {
public:
    typedef std::vector<std::uint8_t> Bytes;

    JitdumpWriter(bool bigEndian, std::uint32_t pid, std::uint32_t headerSize = 40) : m_bigEndian(bigEndian) {
        u32(m_out, 0x4A695444);
        u32(m_out, 1);
        u32(m_out, headerSize);
        u32(m_out, 62);
        u32(m_out, 0);
        u32(m_out, pid);
        u64(m_out, 1700000000000000);
        u64(m_out, 0);
        m_out.resize(headerSize < 40 ? 40 : headerSize, 0xee);
    }

    JitdumpWriter& codeLoad(std::uint64_t time, std::uint64_t address, const std::string& name, std::uint64_t size,
                            std::uint64_t index, std::uint64_t claimedSize = 0) {
        Bytes body;
        u32(body, 4711);
        u32(body, 4712);
        u64(body, address);
        u64(body, address);
        u64(body, claimedSize ? claimedSize : size);
        u64(body, index);
        text(body, name);
        body.resize(body.size() + size, 0x90);
        return record(0, time, body);
    }
    JitdumpWriter& codeMove(std::uint64_t time, std::uint64_t from, std::uint64_t to, std::uint64_t size,
                            std::uint64_t index) {
        Bytes body;
        u32(body, 4711);
        u32(body, 4712);
        for (std::uint64_t value : {to, from, to, size, index})
            u64(body, value);
        return record(1, time, body);
    }
    JitdumpWriter& debugInfo(std::uint64_t time, std::uint64_t address, const std::vector<JitdumpLine>& lines,
                             std::uint64_t claimedCount = 0) {
        Bytes body;
        u64(body, address);
        u64(body, claimedCount ? claimedCount : lines.size());
        for (const JitdumpLine& line : lines) {
            u64(body, line.address);
            u32(body, static_cast<std::uint32_t>(line.line));
            u32(body, 0);
            text(body, line.file);
        }
        return record(2, time, body);
    }
    JitdumpWriter& record(std::uint32_t id, std::uint64_t time, const Bytes& body, std::uint32_t claimedSize = 0) {
        u32(m_out, id);
        u32(m_out, claimedSize ? claimedSize : static_cast<std::uint32_t>(16 + body.size()));
        u64(m_out, time);
        m_out.insert(m_out.end(), body.begin(), body.end());
        return *this;
    }
    JitdumpWriter& cutOff(std::size_t count) {
        m_out.resize(m_out.size() - count);
        return *this;
    }

    const Bytes& bytes() const { return m_out; }
    std::string writeTo(const std::string& path) const {
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        file.write(reinterpret_cast<const char*>(m_out.data()), static_cast<std::streamsize>(m_out.size()));
        if (!file)
            throw std::runtime_error("cannot write " + path);
        return path;
    }

private:
    void word(Bytes& out, std::uint64_t value, int width) const {
        for (int i = 0; i < width; ++i)
            out.push_back(static_cast<std::uint8_t>(value >> (8 * (m_bigEndian ? width - 1 - i : i))));
    }
    void u32(Bytes& out, std::uint32_t value) const { word(out, value, 4); }
    void u64(Bytes& out, std::uint64_t value) const { word(out, value, 8); }
    static void text(Bytes& out, const std::string& value) {
        out.insert(out.end(), value.begin(), value.end());
        out.push_back(0);
    }

    bool m_bigEndian;
    Bytes m_out;
};

} // namespace korvane_test

#endif

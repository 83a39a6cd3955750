// The jit RVA range of each catalogued file by the path that names it, found without taking the name apart.
#include "jitreader/file_range_index.h"

#include <boost/filesystem/path.hpp>

#include <algorithm>
#include <cstring>
#include <limits>

namespace korvane_3_10 {

namespace {

// Two paths compare equal when their elements do, whatever separators stand between them.
std::string elementsOf(const std::string& path) {
    std::string key;
    const boost::filesystem::path parsed(path);
    for (const boost::filesystem::path& element : parsed) {
        key += element.string();
        key += '\0';
    }
    return key;
}

u64_t mixed(u64_t value) {
    value ^= value >> 33;
    value *= 0xff51afd7ed558ccdull;
    value ^= value >> 33;
    value *= 0xc4ceb9fe1a85ec53ull;
    value ^= value >> 33;
    return value;
}

u64_t wordAt(const char* text) {
    u64_t word = 0;
    std::memcpy(&word, text, sizeof(word));
    return word;
}

const u64_t kLaneFactor = 0x9e3779b97f4a7c15ull;

u64_t shortHash(const char* text, std::size_t length) {
    u64_t hash = length;
    std::size_t at = 0;
    for (; at + sizeof(u64_t) <= length; at += sizeof(u64_t))
        hash = (hash ^ wordAt(text + at)) * kLaneFactor;
    u64_t rest = 0;
    std::memcpy(&rest, text + at, length - at);
    return mixed(hash ^ rest);
}

// The whole path: files of one catalogue may share long tails (the same names in
// several directories) as well as long heads. Four lanes of words keep the
// multiplications of a step independent of each other; the last block overlaps
// the one before it rather than reading past the end. Never 0.
u64_t hashOf(const char* text, std::size_t length) {
    const std::size_t block = 4 * sizeof(u64_t);
    if (length < block) {
        const u64_t hash = shortHash(text, length);
        return hash != 0 ? hash : 1;
    }
    u64_t lanes[4] = {length, 1, 2, 3};
    const auto step = [&lanes](const char* words) {
        for (std::size_t lane = 0; lane < 4; ++lane)
            lanes[lane] = (lanes[lane] ^ wordAt(words + lane * sizeof(u64_t))) * kLaneFactor;
    };
    for (std::size_t at = 0; at + block < length; at += block)
        step(text + at);
    step(text + length - block);
    const u64_t hash = mixed(lanes[0] ^ (lanes[1] >> 16 | lanes[1] << 48) ^ (lanes[2] >> 32 | lanes[2] << 32) ^
                             (lanes[3] >> 48 | lanes[3] << 16));
    return hash != 0 ? hash : 1;
}

} // namespace

const FileRangeIndex::Slot* FileRangeIndex::slotOf(const char* path, std::size_t length, u64_t hash) const {
    if (m_slots.empty())
        return nullptr;
    const std::size_t mask = m_slots.size() - 1;
    for (std::size_t position = hash & mask;; position = (position + 1) & mask) {
        const Slot& slot = m_slots[position];
        if (slot.hash == 0)
            return nullptr;
        if (slot.hash == hash && slot.length == length && std::memcmp(m_texts.data() + slot.text, path, length) == 0)
            return &slot;
    }
}

void FileRangeIndex::insert(const Slot& slot) {
    const std::size_t mask = m_slots.size() - 1;
    std::size_t position = slot.hash & mask;
    while (m_slots[position].hash != 0)
        position = (position + 1) & mask;
    m_slots[position] = slot;
}

void FileRangeIndex::grow() {
    // At most half the slots in use keeps the probe runs short.
    std::vector<Slot> old(std::max<std::size_t>(16, 2 * m_slots.size()), Slot{0, 0, 0, 0, 0});
    old.swap(m_slots);
    for (const Slot& slot : old)
        if (slot.hash != 0)
            insert(slot);
}

void FileRangeIndex::add(const std::string& path, u64_t start, u64_t end) {
    const Bounds first = m_byElements.emplace(elementsOf(path), Bounds(start, end)).first->second;
    // A query spells its path as a zero-ended text: no query names a path with a zero byte inside.
    // Spellings beyond what the slots can place are left to the long way of the catalogue.
    const u32_t most = std::numeric_limits<u32_t>::max();
    if (path.find('\0') != std::string::npos || path.size() > most - m_texts.size())
        return;
    const u64_t hash = hashOf(path.data(), path.size());
    if (slotOf(path.data(), path.size(), hash))
        return;
    if (2 * (m_count + 1) > m_slots.size())
        grow();
    insert(Slot{hash, first.first, first.second, u32_t(m_texts.size()), u32_t(path.size())});
    ++m_count;
    m_texts.append(path);
}

bool FileRangeIndex::find(const char* path, u64_t& start, u64_t& end) const {
    const std::size_t length = std::strlen(path);
    const Slot* slot = slotOf(path, length, hashOf(path, length));
    if (!slot)
        return false;
    start = slot->start;
    end = slot->end;
    return true;
}

} // namespace korvane_3_10

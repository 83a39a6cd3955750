// Methods by their 128-bit id, in one flat array of slots.
#ifndef KORVANE_JITREADER_METHOD_ID_TABLE_H
#define KORVANE_JITREADER_METHOD_ID_TABLE_H

#include "jitreader/base_method_id.h"
#include "jitreader/jit_method.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace korvane_3_10 {

// Answers as a hash map of ids to methods does, for the lookups and inserts a record makes.
// A chained map reads a bucket, the node before the chain and the node itself, each in a
// place of its own: at a million methods three cache misses. A slot here holds the id and
// the method, and a lookup mostly reads one.
class MethodIdTable {
public:
    MethodIdTable() = default;
    MethodIdTable(const MethodIdTable&) = delete;
    MethodIdTable& operator=(const MethodIdTable&) = delete;

    std::size_t size() const { return m_size; }
    // How many methods fit before the table grows.
    std::size_t capacity() const;
    // Room for at least this many methods.
    void reserve(std::size_t count);
    // The method kept under the id: the one given when the id was new, else the one there.
    std::pair<const JitMethod::Ptr*, bool> insert(const BaseMethodId& id, const JitMethod::Ptr& method);
    // Null when the id has no method.
    const JitMethod::Ptr* find(const BaseMethodId& id) const;
    void clear();

private:
    // Empty while the method is null; no null method is ever kept.
    struct Slot {
        BaseMethodId id;
        JitMethod::Ptr method;
    };

    std::size_t slotOf(const BaseMethodId& id) const;
    void rehash(std::size_t slotCount);

    std::vector<Slot> m_slots;
    std::size_t m_size = 0;
};

} // namespace korvane_3_10

#endif

// Methods by their 128-bit id, in one flat array of slots.
#include "jitreader/method_id_table.h"

#include <algorithm>

namespace korvane_3_10 {

namespace {

// At most three quarters full: a lookup then ends within a slot or two of its start.
std::size_t fillFor(std::size_t slotCount) { return slotCount / 4 * 3; }

std::size_t slotsFor(std::size_t count) { return std::max<std::size_t>(16, count / 3 * 4 + 4); }

} // namespace

std::size_t MethodIdTable::capacity() const { return fillFor(m_slots.size()); }

void MethodIdTable::reserve(std::size_t count) {
    if (count > capacity())
        rehash(slotsFor(count));
}

std::size_t MethodIdTable::slotOf(const BaseMethodId& id) const {
    // The hash scaled to the slot count rather than masked: the table takes any size, not
    // only powers of two, and so keeps little room it never fills.
    const std::size_t count = m_slots.size();
    const u64_t high = static_cast<u64_t>(BaseMethodId::Hash()(id)) >> 32;
    std::size_t slot = static_cast<std::size_t>((high * count) >> 32);
    while (m_slots[slot].method && !(m_slots[slot].id == id))
        slot = slot + 1 == count ? 0 : slot + 1;
    return slot;
}

std::pair<const JitMethod::Ptr*, bool> MethodIdTable::insert(const BaseMethodId& id, const JitMethod::Ptr& method) {
    if (m_size + 1 > capacity())
        rehash(slotsFor(2 * m_size + 1));
    Slot& slot = m_slots[slotOf(id)];
    if (slot.method)
        return std::make_pair(&slot.method, false);
    slot.id = id;
    slot.method = method;
    ++m_size;
    return std::make_pair(&slot.method, true);
}

const JitMethod::Ptr* MethodIdTable::find(const BaseMethodId& id) const {
    if (m_size == 0)
        return nullptr;
    const Slot& slot = m_slots[slotOf(id)];
    return slot.method ? &slot.method : nullptr;
}

void MethodIdTable::clear() {
    std::vector<Slot>().swap(m_slots);
    m_size = 0;
}

void MethodIdTable::rehash(std::size_t slotCount) {
    std::vector<Slot> old(slotCount);
    old.swap(m_slots);
    for (Slot& slot : old)
        if (slot.method) {
            Slot& target = m_slots[slotOf(slot.id)];
            target.id = slot.id;
            target.method = std::move(slot.method);
        }
}

} // namespace korvane_3_10

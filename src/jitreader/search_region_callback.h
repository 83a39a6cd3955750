// What a decoder asks to find the code that an update record changes.
#ifndef KORVANE_JITREADER_SEARCH_REGION_CALLBACK_H
#define KORVANE_JITREADER_SEARCH_REGION_CALLBACK_H

#include "jitreader/jit_method.h"
#include "jitreader/region.h"

namespace korvane_3_10 {

// Finds the region that covers an address at a time in a process.
class SearchRegionCallback {
public:
    virtual korvane_error_t findRegion(u64_t address, u64_t time, u32_t pid, u32_t hostId, Region::Ptr& region,
                                       JitMethod::Ptr& method) const = 0;

protected:
    ~SearchRegionCallback() {}
};

} // namespace korvane_3_10

#endif

// What a command hands over at its end to live until the process ends, so that the tool can leave without freeing it.
#include "lasting_objects.h"

#include <vector>

namespace korvane_tool {

namespace {

// Never freed: what it holds is freed by the end of the process.
std::vector<std::shared_ptr<void> >* g_kept = nullptr;

} // namespace

bool LastingObjects::s_keeping = false;

void LastingObjects::keepUntilExit() {
    s_keeping = true;
    if (!g_kept)
        g_kept = new std::vector<std::shared_ptr<void> >();
}

void LastingObjects::keep(std::shared_ptr<void> object) { g_kept->push_back(std::move(object)); }

} // namespace korvane_tool

// The tool's heap: mimalloc on 2 MiB pages. A command builds millions of small objects and keeps
// them until it exits; on large pages it takes a few page faults where the system allocator
// takes thousands (a third of a `resolve` over a Node.js trace).
#include <mimalloc.h>

namespace {

// mimalloc reads its options when it starts, before any constructor of ours, so this runs from
// the executable's pre-initialisation, which comes before every shared library's.
void useLargePages(int, char**, char**) {
    mi_option_enable(mi_option_large_os_pages);
}

__attribute__((section(".preinit_array"), used)) void (*const kUseLargePages)(int, char**, char**) = useLargePages;

} // namespace

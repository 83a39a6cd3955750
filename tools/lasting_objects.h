// What a command hands over at its end to live until the process ends, so that the tool can leave without freeing it.
#ifndef KORVANE_TOOLS_LASTING_OBJECTS_H
#define KORVANE_TOOLS_LASTING_OBJECTS_H

#include <boost/intrusive_ptr.hpp>

#include <memory>

namespace korvane_tool {

// Freeing the traces of a large run object by object takes a tenth of the run just before the
// process ends, when the system takes all memory back at once anyway. The tool's main asks for
// objects to be kept; elsewhere (tests, other programs linking the commands) handing over does
// nothing, and the objects are freed as usual. Kept objects stay reachable from a list that is
// never freed, so that leak checkers do not count them.
class LastingObjects {
public:
    static void keepUntilExit();

    template <class T>
    static void handOver(const boost::intrusive_ptr<T>& object) {
        if (object && s_keeping)
            keep(std::shared_ptr<void>(object.get(), [object](void*) {}));
    }
    template <class T>
    static void handOver(std::unique_ptr<T>& object) {
        if (object && s_keeping)
            keep(std::shared_ptr<void>(std::move(object)));
    }

private:
    static void keep(std::shared_ptr<void> object);

    static bool s_keeping;
};

} // namespace korvane_tool

#endif

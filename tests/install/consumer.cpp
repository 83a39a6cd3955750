// Lists the JIT methods of result directories, using nothing but the installed public header.
#include <korvane/jitreader.h>

#include <iostream>
#include <vector>

using namespace korvane_3_10;

namespace {

int countProcesses(skeinkit2::generic_iterator_t<const char*>& paths) {
    boost::intrusive_ptr<IJitProcesses> processes = IJitProcesses::create(paths);
    if (!processes)
        return -1;
    int count = 0;
    for (skeinkit2::generic_iterator_t<u32_t> pids = processes->getJitProcessId(); !pids.at_end(); pids.next())
        ++count;
    return count;
}

} // namespace

int main(int argc, char** argv) {
    // The directories as the library takes them: an iterator over C strings.
    std::vector<const char*> dirs(argv + 1, argv + argc);
    skeinkit2::iterutil::stl_iterator_impl_t<const char*, std::vector<const char*>::const_iterator> walk(
        dirs.begin(), dirs.end());
    skeinkit2::generic_iterator_t<const char*> paths(walk);

    boost::intrusive_ptr<ISymbolFileLocator> locator;
    boost::intrusive_ptr<ISymbolResolver> resolver = ISymbolResolver::create(paths, locator);
    if (!resolver) {
        std::cerr << "cannot read the traces\n";
        return 1;
    }
    int symbols = 0;
    for (auto symbol = resolver->getSymbols(); !symbol.at_end(); symbol.next()) {
        std::cout << symbol.current()->getQualifiedMethodName() << "\n";
        ++symbols;
    }

    skeinkit2::generic_iterator_t<const char*> again(walk);
    std::cout << symbols << " symbols, " << countProcesses(again) << " processes\n";
    return symbols > 0 ? 0 : 1;
}

// korvane-fuzz-seeds OUTDIR: writes seed inputs for the fuzz targets, the
// traces with the project's trace writer, each target's in OUTDIR/<name>/.
#include "tracewriter/trace_writer.h"

#include <boost/filesystem/operations.hpp>

#include <exception>
#include <fstream>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

namespace {

namespace fs = boost::filesystem;
using namespace korvane_tracewriter;

const std::uint64_t kBase = 0x7f3a1c001000;
// push rbp; mov rbp, rsp; xor eax, eax; nop; pop rbp; ret: a few real instructions for the code dumps.
const Bytes kCode = {0x55, 0x48, 0x89, 0xe5, 0x31, 0xc0, 0x90, 0x90, 0x90, 0x90, 0x90, 0x90, 0x90, 0x90, 0x5d, 0xc3};

LoadRecord javaMethod(std::uint32_t id, std::uint64_t address, std::uint64_t loadTime, const char* className,
                      const char* methodName) {
    LoadRecord record;
    record.methodId = id;
    record.methodToken = 0x06000000 + id;
    record.loadTime = loadTime;
    record.ranges.push_back({address, static_cast<std::uint32_t>(kCode.size()), kCode});
    record.className = className;
    record.methodName = methodName;
    record.sourceFileName = "Cart.java";
    record.languageType = 5;
    record.nativeToSource = {{0, 8, 40}, {8, 16, 41}};
    return record;
}

LoadRecord dotnetMethod(std::uint32_t id, std::uint64_t address, std::uint64_t loadTime) {
    LoadRecord record = javaMethod(id, address, loadTime, "Harbor.Billing.Invoice", "Total");
    record.moduleName = "/srv/billing/Harbor.Billing.dll";
    record.sourceFileName = "Invoice.cs";
    record.languageType = 0;
    record.nativeToSource.clear();
    record.managedToSource = {{0, 4, 43}, {4, 12, 44}};
    record.nativeToManaged = {{0, 8, 0}, {8, 16, 4}};
    record.checksumType = 1;
    record.checksum = "0123456789abcdef";
    return record;
}

InlineRecord inlineOf(std::uint32_t id, std::uint32_t parentId, std::uint64_t address, std::uint32_t length) {
    InlineRecord record;
    record.methodId = id;
    record.parentId = parentId;
    record.loadTime = 1000;
    record.startAddress = address;
    record.length = length;
    record.code.assign(kCode.begin(), kCode.begin() + length);
    record.className = "Lcom/example/shop/Item;";
    record.methodName = "getPrice()I";
    record.sourceFileName = "Item.java";
    record.languageType = 5;
    record.nativeToSource = {{0, length, 17}};
    return record;
}

TraceWriter profilerTrace() {
    TraceWriter trace;
    trace.magic().collectorType(1);
    return trace;
}

std::vector<std::pair<std::string, TraceWriter>> traces() {
    const LoadRecord cart = javaMethod(1, kBase, 1000, "Lcom/example/shop/Cart;", "addItem(Lcom/example/shop/Item;I)V");
    LoadRecord replaced = javaMethod(2, kBase + 8, 2000, "Lcom/example/util/Cache;", "get(Ljava/lang/Object;)Ljava/lang/Object;");
    UpdateV2Record patch;
    patch.loadTime = 1500;
    patch.rangeName = "patch";
    patch.startAddress = kBase + 4;
    patch.length = 2;
    patch.code = {0x90, 0x90};
    LoadRecord update = cart;
    update.loadTime = 1200;
    LoadRecord old = dotnetMethod(3, 0x8001000, 500);
    return {
        {"java_v3.jit", profilerTrace().loadV3(cart).inlineLoad(inlineOf(10, 1, kBase + 4, 8)).loadV3(replaced)},
        {"nested_inlines.jit", profilerTrace()
                                   .inlineLoad(inlineOf(12, 11, kBase + 6, 2))
                                   .loadV3(cart)
                                   .inlineLoad(inlineOf(11, 1, kBase + 4, 8))
                                   .inlineLoad(inlineOf(13, 12, kBase + 6, 1))},
        {"updates.jit", profilerTrace().loadV3(cart).functionUpdate(update).updateV2(patch)},
        {"dotnet_v2.jit", profilerTrace().loadV2(dotnetMethod(3, kBase, 100)).loadV2(old, Width::Bits32)},
        {"old_agents.jit", TraceWriter().magic().loadV0(old, Width::Bits32).loadV1(dotnetMethod(4, kBase, 200))},
        {"cut_short.jit", profilerTrace().loadV3(cart).loadV3(replaced).cutOff(5)},
    };
}

const char* const kJavaNames[] = {
    "Lcom/example/shop/Cart;",
    "addItem(Lcom/example/shop/Item;I)V",
    "Lcom/example/util/Cache<TK;TV;>;",
    "putAll(Ljava/util/Map<+Ljava/lang/String;+Ljava/util/List<Ljava/lang/Integer;>;>;)V",
    "<T:Ljava/lang/Object;>copy([TT;[[J)Ljava/util/List<*>;",
    "main([Ljava/lang/String;)V",
    "Lcom/example/Outer$Inner;",
};

const char* const kSampleFiles[] = {
    "timestamp,ip,pid,host\n1500000,0x7f3a1c001014,4711,alpha.example.net\n0x16e360,139887554596872,4711,beta\n",
    "# samples\r\ntimestamp,ip,pid,host\r\n\r\n1,0x10,7,\"quoted, \"\"host\"\"\"\r\n2,0x20,7,\"two\nlines\"\r\n",
    "timestamp,ip,pid,host\n1,2,3\nx,0x,99999999999,\n",
};

void writeFile(const fs::path& path, const std::string& bytes) {
    std::ofstream(path.string(), std::ios::binary) << bytes;
}

void writeAll(const fs::path& outDir) {
    fs::create_directories(outDir / "trace_file");
    for (const auto& trace : traces())
        trace.second.writeTo((outDir / "trace_file" / trace.first).string());
    fs::create_directories(outDir / "java_name");
    for (std::size_t i = 0; i < sizeof kJavaNames / sizeof kJavaNames[0]; ++i)
        writeFile(outDir / "java_name" / ("name-" + std::to_string(i)), kJavaNames[i]);
    fs::create_directories(outDir / "sample_file");
    for (std::size_t i = 0; i < sizeof kSampleFiles / sizeof kSampleFiles[0]; ++i)
        writeFile(outDir / "sample_file" / ("samples-" + std::to_string(i) + ".csv"), kSampleFiles[i]);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "Usage: korvane-fuzz-seeds OUTDIR\n";
        return 2;
    }
    try {
        writeAll(argv[1]);
    } catch (const std::exception& error) {
        std::cerr << "korvane-fuzz-seeds: " << error.what() << "\n";
        return 1;
    }
    return 0;
}

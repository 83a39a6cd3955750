// The example traces: result directories of a few hosts and processes, and samples to resolve.
#include "example_set.h"

#include "example_records.h"

#include <boost/filesystem/operations.hpp>

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace korvane_examples {

namespace fs = boost::filesystem;

using korvane_tracewriter::Bytes;
using korvane_tracewriter::TraceWriter;
using korvane_tracewriter::Width;

namespace {

const char kProduction[] = "session-1";
const char kRerun[] = "session-2";

const std::uint32_t kOtherCollector = 2;

// Where the JVM of the shop service puts its compiled code.
const std::uint64_t kShop = 0x7f3a1c000000;
const std::uint64_t kBilling = 0x7ffe30000000;
const std::uint64_t kBatch = 0x7f0100000000;

MethodFacts java(std::uint32_t id, const std::string& className, const std::string& methodName,
                 const std::string& sourceFile, std::uint32_t firstLine, std::uint64_t address, std::uint32_t length,
                 std::uint64_t loadTime) {
    MethodFacts facts;
    facts.id = id;
    facts.className = className;
    facts.methodName = methodName;
    facts.sourceFile = sourceFile;
    facts.languageType = ExampleRecords::kJava;
    facts.firstLine = firstLine;
    facts.address = address;
    facts.length = length;
    facts.loadTime = loadTime;
    return facts;
}

MethodFacts inlinedInto(MethodFacts facts, std::uint32_t parentId) {
    facts.parentId = parentId;
    return facts;
}

MethodFacts movedTo(MethodFacts facts, std::uint64_t address, std::uint32_t length, std::uint64_t loadTime) {
    facts.address = address;
    facts.length = length;
    facts.loadTime = loadTime;
    return facts;
}

MethodFacts dotnet(std::uint32_t id, std::uint32_t token, const std::string& className,
                   const std::string& methodName, const std::string& module, const std::string& sourceFile,
                   std::uint32_t firstLine, std::uint64_t address, std::uint32_t length, std::uint64_t loadTime) {
    MethodFacts facts;
    facts.id = id;
    facts.token = token;
    facts.className = className;
    facts.methodName = methodName;
    facts.module = module;
    facts.sourceFile = sourceFile;
    facts.languageType = ExampleRecords::kCSharp;
    facts.firstLine = firstLine;
    facts.address = address;
    facts.length = length;
    facts.loadTime = loadTime;
    return facts;
}

std::string hexText(std::uint64_t value) {
    std::ostringstream text;
    text << "0x" << std::hex << value;
    return text.str();
}

} // namespace

ExampleSet::ExampleSet(fs::path outDir) : m_outDir(std::move(outDir)) {}

std::vector<std::string> ExampleSet::write() {
    writeShopJvm();
    writeLegacyJvm();
    writeBillingService();
    writeImporter();
    writeScriptEngine();
    writeBatchJvm();
    writeBillingReload();
    writeSamples();
    return m_written;
}

void ExampleSet::writeTrace(const std::string& directory, const std::string& name, const TraceWriter& trace) {
    const fs::path dir = m_outDir / directory;
    fs::create_directories(dir);
    const std::string path = (dir / name).string();
    trace.writeTo(path);
    m_written.push_back(path);
}

void ExampleSet::sample(std::uint64_t timestamp, std::uint64_t ip, std::uint32_t pid, const std::string& host) {
    m_samples.push_back(Sample{std::to_string(timestamp), hexText(ip), std::to_string(pid), host});
}

void ExampleSet::sampleHexTime(std::uint64_t timestamp, std::uint64_t ip, std::uint32_t pid,
                               const std::string& host) {
    m_samples.push_back(Sample{hexText(timestamp), std::to_string(ip), std::to_string(pid), host});
}

// A Java service under the JIT profiler agent: V3 records with Java signatures,
// inlines in every arrival order, code patched in place and replaced, and a
// method recompiled over the older code of another one.
void ExampleSet::writeShopJvm() {
    const std::string host = "alpha.example.net";
    const ExampleRecords records(CodeBytes::Bits64);

    const MethodFacts addItem = java(101, "Lcom/example/shop/Cart;", "addItem(Lcom/example/shop/Item;I)V",
                                     "Cart.java", 42, kShop + 0x1000, 0x60, 1000100);
    const MethodFacts getPrice = inlinedInto(java(201, "Lcom/example/shop/Item;", "getPrice()Ljava/math/BigDecimal;",
                                                  "Item.java", 17, kShop + 0x1010, 0x18, 1000101),
                                             101);
    const MethodFacts hash = inlinedInto(java(202, "Ljava/util/HashMap;", "hash(Ljava/lang/Object;)I",
                                              "HashMap.java", 338, kShop + 0x2020, 0x20, 1000200),
                                         102);
    const MethodFacts get = java(102, "Lcom/example/util/Cache<TK;TV;>;", "get(Ljava/lang/Object;)Ljava/lang/Object;",
                                 "Cache.java", 58, kShop + 0x2000, 0x80, 1000201);
    const MethodFacts hashCode = inlinedInto(
        java(204, "Ljava/lang/String;", "hashCode()I", "String.java", 1502, kShop + 0x3030, 0x10, 1000300), 203);
    const MethodFacts putVal = inlinedInto(java(203, "Ljava/util/HashMap;",
                                                "putVal(ILjava/lang/Object;Ljava/lang/Object;ZZ)Ljava/lang/Object;",
                                                "HashMap.java", 624, kShop + 0x3020, 0x30, 1000301),
                                           103);
    const MethodFacts putAll =
        java(103, "Lcom/example/util/Cache<TK;TV;>;",
             "putAll(Ljava/util/Map<+Ljava/lang/String;+Ljava/util/List<Ljava/lang/Integer;>;>;)V", "Cache.java", 71,
             kShop + 0x3000, 0xa0, 1000302);
    MethodFacts total = java(104, "Lcom/example/shop/Cart;", "total()J", "Cart.java", 88, kShop + 0x4000, 0x40,
                             1000400);
    const MethodFacts sort = java(105, "Lcom/example/util/Sorter;", "sort([I[[Ljava/lang/String;)V", "Sorter.java",
                                  23, kShop + 0x5000, 0x70, 1000500);
    MethodFacts addItemCalls = addItem;
    addItemCalls.calls = {total.address, get.address};

    TraceWriter first;
    first.magic().collectorType(TraceWriter::kCollectorJitProfiler);
    first.loadV3(records.load(addItemCalls)).inlineLoad(records.inlined(getPrice)); // parent first
    first.inlineLoad(records.inlined(hash)).loadV3(records.load(get));               // inline first
    first.inlineLoad(records.inlined(hashCode)).inlineLoad(records.inlined(putVal));  // nested, innermost first
    first.loadV3(records.load(putAll));
    first.loadV3(records.load(total)).loadV3(records.load(sort));
    // Cart.total may no longer be entered: its entry jumps to Cache.get.
    first.functionUpdate(
        records.patch(total, total.address, CodeBytes::entryJump(total.address, get.address), 1002000));
    // Cache.get recompiled where Cart.total was, and beyond it.
    first.loadV3(records.load(movedTo(get, kShop + 0x4000, 0xa0, 1003000)));
    first.updateV2(records.replace(sort, "sort [deoptimized]", 1003500));
    writeTrace(kProduction, host + ".4711-0.jit", first);

    MethodFacts run = java(106, "Lcom/example/shop/Checkout;", "run([Ljava/lang/String;)V", "Checkout.java", 30,
                           kShop + 0x6000, 0x90, 1005000);
    run.calls = {kShop + 0x7000};
    const MethodFacts totalInRun = inlinedInto(movedTo(total, kShop + 0x6040, 0x20, 1005001), 106);
    const MethodFacts lambda = java(107, "Lcom/example/shop/Checkout;", "lambda$run$0(Ljava/util/Map$Entry;)Z",
                                    "Checkout.java", 35, kShop + 0x7000, 0x30, 1005100);
    TraceWriter second;
    second.magic().collectorType(TraceWriter::kCollectorJitProfiler);
    second.loadV3(records.load(run, ExampleRecords::NativeToManagedToSource)).inlineLoad(records.inlined(totalInRun));
    second.loadV3(records.load(lambda));
    // The hot method compiled again, at a new place.
    second.loadV3(records.load(movedTo(addItem, kShop + 0x8000, 0x80, 1005200)));
    second.functionUpdate(records.patch(run, run.address, CodeBytes::entryJump(run.address, lambda.address), 1006000));
    writeTrace(kProduction, host + ".4711-1.jit", second);

    sample(1500000, addItem.address + 0x08, 4711, host);
    sample(1500000, getPrice.address + 0x04, 4711, host);
    sample(1500000, hash.address + 0x10, 4711, host);
    sample(1500000, hashCode.address + 0x04, 4711, host);
    sample(1500000, putVal.address + 0x02, 4711, host);
    sample(1500000, putAll.address + 0x90, 4711, host);
    // Before and after Cache.get took over the place of Cart.total.
    sample(1002500, total.address + 0x20, 4711, host);
    sample(1004000, total.address + 0x20, 4711, host);
    sample(1004000, total.address + 0x60, 4711, host);
    // Before and after Sorter.sort got new code.
    sample(1002500, sort.address + 0x30, 4711, host);
    sample(1004000, sort.address + 0x30, 4711, host);
    sample(5500000, run.address + 0x48, 4711, host);
    sample(5500000, run.address + 0x10, 4711, host);
    sample(5500000, lambda.address + 0x08, 4711, host);
    sample(5500000, kShop + 0x8010, 4711, host);
    sampleHexTime(0x16e360, addItem.address + 0x08, 4711, host);
    sample(900000, addItem.address + 0x08, 4711, host);
    sample(1500000, 0x401000, 4711, host);
    sample(1500000, addItem.address + 0x08, 999, host);
}

// A JVM with 32-bit and 64-bit code in one trace.
void ExampleSet::writeLegacyJvm() {
    const std::string host = "alpha.example.net";
    const ExampleRecords records32(CodeBytes::Bits32);
    const ExampleRecords records64(CodeBytes::Bits64);
    const MethodFacts decode = java(301, "Lorg/example/legacy/Codec;", "decode([BII)Ljava/lang/String;",
                                    "Codec.java", 110, 0x0804a000, 0x40, 2000100);
    const MethodFacts encode = java(302, "Lorg/example/legacy/Codec;", "encode(Ljava/lang/String;)[B", "Codec.java",
                                    140, 0x7f00aa001000, 0x50, 2000200);
    const MethodFacts init = java(303, "Lorg/example/legacy/Codec$Table;", "<clinit>()V", "Codec.java", 12,
                                  0x7f00aa002000, 0x20, 2000300);
    TraceWriter trace;
    trace.magic().collectorType(TraceWriter::kCollectorJitProfiler);
    trace.loadV3(records32.load(decode), Width::Bits32);
    trace.loadV3(records64.load(encode)).loadV3(records64.load(init));
    writeTrace(kProduction, host + ".4800.jit", trace);
    sample(2100000, decode.address + 0x10, 4800, host);
    sample(2100000, encode.address + 0x10, 4800, host);
}

// A .NET service: V2, V1 and V0 records, line tables through IL offsets, an
// inline found by its address, and precompiled code.
void ExampleSet::writeBillingService() {
    const std::string host = "beta";
    const std::string module = "/srv/billing/Harbor.Billing.dll";
    const ExampleRecords records(CodeBytes::Bits64);
    MethodFacts invoiceTotal = dotnet(401, 0x06000012, "Harbor.Billing.Invoice", "Total", module, "Invoice.cs", 41,
                                      kBilling + 0x1000, 0x70, 500100);
    MethodFacts amount = dotnet(0, 0x06000044, "Harbor.Billing.LineItem", "get_Amount", module, "LineItem.cs", 9,
                                kBilling + 0x1020, 0x10, 500101);
    const MethodFacts addLine = dotnet(402, 0x06000013, "Harbor.Billing.Invoice", "AddLine", module, "Invoice.cs", 60,
                                       kBilling + 0x2000, 0x50, 500200);
    const MethodFacts sum = dotnet(403, 0x0600127a, "System.Linq.Enumerable", "Sum",
                                   "/usr/share/dotnet/shared/runtime/8.0.0/System.Linq.dll", "", 0,
                                   kBilling + 0x9000, 0x40, 1);
    invoiceTotal.calls = {sum.address};
    korvane_tracewriter::LoadRecord totalRecord = records.load(invoiceTotal, ExampleRecords::NativeToManagedToSource);
    totalRecord.checksumType = 1;
    totalRecord.checksum = "5d41402abc4b2a76b9719d911017c592";
    TraceWriter first;
    first.magic();
    first.loadV2(totalRecord).inlineLoad(records.inlined(amount));
    first.loadV2(records.load(addLine)).loadV2(records.load(sum));
    writeTrace(kProduction, host + ".12-0.jit", first);

    const MethodFacts lookup = dotnet(0, 0x06000031, "Harbor.Billing.TaxTable", "Lookup", module, "TaxTable.cs", 77,
                                      kBilling + 0x3000, 0x60, 500300);
    const MethodFacts render = dotnet(0, 0x06000052, "Harbor.Billing.Report", "Render", module, "Report.cs", 15,
                                      kBilling + 0x4000, 0x80, 500400);
    TraceWriter second;
    second.magic();
    second.loadV1(records.load(lookup, ExampleRecords::NativeToManagedToSource)).loadV0(records.load(render));
    writeTrace(kProduction, host + ".12-1.jit", second);

    sample(600000, invoiceTotal.address + 0x08, 12, host);
    sample(600000, amount.address + 0x04, 12, host);
    sample(600000, sum.address + 0x04, 12, host);
    sample(600000, lookup.address + 0x30, 12, host);
    sample(600000, render.address + 0x7f, 12, host);
    sample(510000, addLine.address + 0x10, 12, host);
}

// A 32-bit tool on the same host, older agent.
void ExampleSet::writeImporter() {
    const ExampleRecords records(CodeBytes::Bits32);
    const MethodFacts main = dotnet(601, 0x06000001, "Harbor.Tools.Importer", "Main", "/srv/tools/Importer.exe",
                                    "Importer.cs", 20, 0x08100000, 0x40, 510000);
    TraceWriter trace;
    trace.magic().loadV2(records.load(main), Width::Bits32);
    writeTrace(kProduction, "beta.31.jit", trace);
    sample(520000, main.address + 0x20, 31, "beta");
}

// A script engine with the oldest records and a trace that was appended to
// another: the second header ends the reading.
void ExampleSet::writeScriptEngine() {
    const ExampleRecords records(CodeBytes::Bits32);
    MethodFacts loop = dotnet(0, 0x100, "Interp.Compiler", "compileLoop", "", "loop.script", 3, 0x09000000, 0x30, 700);
    MethodFacts call = dotnet(0, 0x101, "Interp.Compiler", "compileCall", "", "call.script", 1, 0x09000100, 0x28, 710);
    const MethodFacts stale = dotnet(0, 0x102, "Interp.Compiler", "stale", "", "", 0, 0x09000200, 0x20, 720);
    TraceWriter trace;
    trace.magic().collectorType(kOtherCollector);
    trace.loadV0(records.load(loop), Width::Bits32).loadV1(records.load(call), Width::Bits32);
    trace.magic().loadV0(records.load(stale), Width::Bits32);
    writeTrace(kProduction, "gamma.7.jit", trace);
    sample(800, loop.address + 0x10, 7, "gamma");
    sample(800, call.address + 0x10, 7, "gamma");
    sample(800, stale.address + 0x10, 7, "gamma");
}

// A second session: a batch JVM on another host whose process id is the
// same as the shop service's.
void ExampleSet::writeBatchJvm() {
    const std::string host = "delta.lab";
    const ExampleRecords records(CodeBytes::Bits64);
    const MethodFacts execute = java(501, "Lio/example/batch/Job;",
                                     "execute(Ljava/util/List<Lio/example/batch/Step;>;)V", "Job.java", 50,
                                     kBatch + 0x1000, 0x80, 3000100);
    const MethodFacts apply = inlinedInto(java(502, "Lio/example/batch/Step;", "apply(Ljava/util/Map<TK;TV;>;)Z",
                                               "Step.java", 21, kBatch + 0x1030, 0x20, 3000101),
                                          501);
    TraceWriter trace;
    trace.magic().collectorType(TraceWriter::kCollectorJitProfiler);
    trace.loadV3(records.load(execute)).inlineLoad(records.inlined(apply), Width::Bits32);
    writeTrace(kRerun, host + ".4711.jit", trace);
    sample(3100000, apply.address + 0x08, 4711, host);
    sample(3100000, execute.address + 0x08, 4711, host);
}

// The billing process traced on into the second session's directory: a
// method compiled over part of older code.
void ExampleSet::writeBillingReload() {
    const std::string host = "beta";
    const ExampleRecords records(CodeBytes::Bits64);
    const MethodFacts finish = dotnet(404, 0x06000014, "Harbor.Billing.Invoice", "Finish",
                                      "/srv/billing/Harbor.Billing.dll", "Invoice.cs", 90, kBilling + 0x2000, 0x30,
                                      520000);
    TraceWriter trace;
    trace.magic().loadV2(records.load(finish));
    writeTrace(kRerun, host + ".12-2.jit", trace);
    sample(530000, finish.address + 0x10, 12, host);
    sample(530000, finish.address + 0x40, 12, host);
    sample(600000, 0x7ffe30005000, 12, host);
    sample(600000, finish.address + 0x10, 12, "omega");
}

void ExampleSet::writeSamples() {
    const std::string path = (m_outDir / "samples.csv").string();
    std::ofstream file(path, std::ios::trunc);
    file << "timestamp,ip,pid,host\n";
    for (const Sample& sample : m_samples)
        file << sample.timestamp << ',' << sample.ip << ',' << sample.pid << ',' << sample.host << '\n';
    if (!file)
        throw std::runtime_error("cannot write " + path);
    m_written.push_back(path);
}

} // namespace korvane_examples

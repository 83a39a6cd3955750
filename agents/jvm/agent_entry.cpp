// The entry points by which the JVM loads the agent, at start or by attach.
#include "jvm_agent.h"

#include <atomic>
#include <cstdio>

namespace {

// A second agent in the same JVM would truncate the first one's trace.
std::atomic<bool> g_started{false};

jint startAgent(JavaVM* vm, const char* options, bool attached) {
    if (g_started.exchange(true)) {
        std::fprintf(stderr, "korvane jvmagent: already running in this JVM; the second start is ignored\n");
        return JNI_OK;
    }
    std::string problem;
    if (!korvane_jvmagent::JvmAgent::create(vm, options, attached, problem)) {
        std::fprintf(stderr, "korvane jvmagent: %s; the JVM runs on without the agent\n", problem.c_str());
        g_started = false;
    }
    // The JVM goes on whatever happened here: a profiling agent must not stop it.
    return JNI_OK;
}

} // namespace

extern "C" JNIEXPORT jint JNICALL Agent_OnLoad(JavaVM* vm, char* options, void*) {
    return startAgent(vm, options, false);
}

extern "C" JNIEXPORT jint JNICALL Agent_OnAttach(JavaVM* vm, char* options, void*) {
    return startAgent(vm, options, true);
}

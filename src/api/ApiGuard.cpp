#include "api/ApiGuard.h"

#include <unordered_set>

namespace vyx::api {
namespace {

struct EngineRegistry {
    std::mutex mutex;
    std::unordered_set<const VyxPosFunc*> live;
};

// Never destroyed, so that a host closing handles from an exit handler still
// finds the registry.
EngineRegistry& registry() {
    static auto* instance = new EngineRegistry();
    return *instance;
}

}  // namespace

VyxPosFunc* engineFrom(VyxHandle handle) {
    if (handle == nullptr) return nullptr;
    auto* engine = static_cast<VyxPosFunc*>(handle);
    EngineRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    return r.live.count(engine) != 0 ? engine : nullptr;
}

void registerEngine(VyxPosFunc* engine) {
    EngineRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.live.insert(engine);
}

void unregisterEngine(VyxPosFunc* engine) {
    EngineRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.live.erase(engine);
}

}  // namespace vyx::api

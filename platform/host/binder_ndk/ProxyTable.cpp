// Proxy identity table.
#include "platform/host/binder_ndk/ProxyTable.h"

#include <sys/random.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <mutex>
#include <unordered_map>

#include "platform/host/binder_ndk/RemoteBinder.h"

namespace zelkor::tessel::binder {
namespace {

struct Table {
    std::mutex lock;
    std::unordered_map<std::string, std::shared_ptr<WeakLink>> proxies;
};

Table& GetTable() {
    static auto* table = new Table();
    return *table;
}

}  // namespace

BinderRef FindOrCreateProxy(const std::string& key, const std::function<BinderRef()>& create) {
    if (key.empty()) return create();
    Table& table = GetTable();
    // A replaced dead proxy is released only after the lock: its destructor
    // takes the lock to forget itself.
    BinderRef previous;
    std::lock_guard<std::mutex> lock(table.lock);
    auto it = table.proxies.find(key);
    if (it != table.proxies.end()) {
        previous = Promote(it->second);
        if (previous && previous->asRemote()->isAlive()) return previous;
    }
    BinderRef proxy = create();
    if (proxy) table.proxies[key] = proxy->weakLink();
    return proxy;
}

void ForgetProxy(const std::string& key, const WeakLink* link) {
    if (key.empty()) return;
    Table& table = GetTable();
    std::lock_guard<std::mutex> lock(table.lock);
    auto it = table.proxies.find(key);
    if (it != table.proxies.end() && it->second.get() == link) table.proxies.erase(it);
}

std::string LocalKeyPrefix() {
    // Regenerated in a forked child, whose objects are its own.
    static std::mutex lock;
    static pid_t owner = 0;
    static std::string prefix;
    std::lock_guard<std::mutex> guard(lock);
    if (owner != getpid()) {
        uint64_t nonce = 0;
        if (getrandom(&nonce, sizeof(nonce), 0) != sizeof(nonce)) {
            nonce = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(&nonce)) ^ getpid();
        }
        char text[64];
        snprintf(text, sizeof(text), "%d:%016" PRIx64 ":", getpid(), nonce);
        owner = getpid();
        prefix = text;
    }
    return prefix;
}

bool KeyBelongsTo(const std::string& key, pid_t pid) {
    const std::string expected = std::to_string(pid) + ":";
    return key.compare(0, expected.size(), expected) == 0;
}

}  // namespace zelkor::tessel::binder

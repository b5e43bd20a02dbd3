// The process's proxies by the identity of the remote object, so that one
// remote object received twice is one AIBinder pointer, as on a device.
//
// Identity keys start with the owner's pid ("<pid>:..."). A key is only
// trusted when the connection that came with it really leads to that pid
// (SO_PEERCRED), so a peer cannot pass off its own object as another
// process's.
#pragma once

#include <functional>
#include <string>

#include "platform/host/binder_ndk/Binder.h"

namespace zelkor::tessel::binder {

// The live proxy for `key`, or the one `create` makes (then remembered). A
// dead proxy is replaced. An empty key is never shared.
BinderRef FindOrCreateProxy(const std::string& key, const std::function<BinderRef()>& create);

// Drops the entry for `key` if it still belongs to `link`'s proxy.
void ForgetProxy(const std::string& key, const WeakLink* link);

// "<pid>:<random>:" for this process: the prefix of its local objects' keys.
std::string LocalKeyPrefix();

// Whether `key` claims to belong to process `pid`.
bool KeyBelongsTo(const std::string& key, pid_t pid);

}  // namespace zelkor::tessel::binder

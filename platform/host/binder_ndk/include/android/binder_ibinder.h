// libbinder_ndk binder objects, host build.
//
// An AIBinder is either local (made by AIBinder_new in this process, its calls
// served by the class's onTransact) or a proxy for an object in another
// process. Both are reference counted: every function documented as returning
// a reference hands one strong reference to the caller, who gives it back with
// AIBinder_decStrong. Within a process one object is always represented by one
// AIBinder address, so pointers can be compared.
//
// On the host, calls to a proxy travel over Unix domain sockets to the owning
// process; see platform/host/binder_ndk/README.md for the wire format.
#pragma once

#include <android/binder_parcel.h>
#include <android/binder_status.h>
#include <stdbool.h>
#include <stdint.h>
#include <sys/cdefs.h>
#include <sys/types.h>

__BEGIN_DECLS

typedef uint32_t binder_flags_t;
enum {
    // Send and return at once: no reply, the caller never waits for the
    // service. One-way calls on one AIBinder are delivered in order.
    FLAG_ONEWAY = 0x01,
};

typedef uint32_t transaction_code_t;
enum {
    // The range of codes user interfaces may use (both ends inclusive); the
    // codes outside it belong to the runtime (ping, dump, interface queries).
    FIRST_CALL_TRANSACTION = 0x00000001,
    LAST_CALL_TRANSACTION = 0x00ffffff,
};

struct AIBinder_Class;
typedef struct AIBinder_Class AIBinder_Class;

struct AIBinder;
typedef struct AIBinder AIBinder;

// A reference that does not keep the object alive but can be promoted back to
// a strong one while something else still holds it.
struct AIBinder_Weak;
typedef struct AIBinder_Weak AIBinder_Weak;

// A callback registration for the death of a remote object's process.
struct AIBinder_DeathRecipient;
typedef struct AIBinder_DeathRecipient AIBinder_DeathRecipient;

// Makes the user data of a new local object from the `args` of AIBinder_new.
typedef void* (*AIBinder_Class_onCreate)(void* args);

// Frees the user data once the last strong reference is gone.
typedef void (*AIBinder_Class_onDestroy)(void* userData);

// Serves one call. The interface token has already been checked when this
// runs. The return value reaches the caller's AIBinder_transact; results and
// service errors go into `out`.
typedef binder_status_t (*AIBinder_Class_onTransact)(AIBinder* binder, transaction_code_t code,
                                                     const AParcel* in, AParcel* out);

// Defines a class of binder objects named by `interfaceDescriptor` (UTF-8).
// Called once per class; the class lives until the process ends. Null on
// error (for instance a null argument).
__attribute__((warn_unused_result)) AIBinder_Class* AIBinder_Class_define(
        const char* interfaceDescriptor, AIBinder_Class_onCreate onCreate,
        AIBinder_Class_onDestroy onDestroy, AIBinder_Class_onTransact onTransact)
        __INTRODUCED_IN(29);

// Writes debugging state of `binder` to `fd` (which stays the caller's).
typedef binder_status_t (*AIBinder_onDump)(AIBinder* binder, int fd, const char** args,
                                           uint32_t numArgs);

// Sets the dump handler of a class, before any object of the class exists.
// Classes without one dump nothing.
void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump onDump) __INTRODUCED_IN(29);

// Stops objects of this class from writing and checking the interface token,
// for peers that do not send one. Must be called before objects exist.
void AIBinder_Class_disableInterfaceTokenHeader(AIBinder_Class* clazz) __INTRODUCED_IN(33);

// Makes a local object of `clazz` (onCreate receives `args`). The caller owns
// the one strong reference the object starts with; onDestroy runs when the
// count drops to zero.
__attribute__((warn_unused_result)) AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args)
        __INTRODUCED_IN(29);

// True for a proxy of an object in another process.
bool AIBinder_isRemote(const AIBinder* binder) __INTRODUCED_IN(29);

// What was last learnt about the object: a local object is always alive; a
// proxy stops being alive once a call failed with STATUS_DEAD_OBJECT or the
// owning process's exit was noticed. Sends nothing.
bool AIBinder_isAlive(const AIBinder* binder) __INTRODUCED_IN(29);

// Round trip to the object; STATUS_OK when it answers.
binder_status_t AIBinder_ping(AIBinder* binder) __INTRODUCED_IN(29);

// Has the object write its dump to `fd` (passed to the remote process for a
// proxy). STATUS_OK when the class has nothing to dump.
binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t numArgs)
        __INTRODUCED_IN(29);

// Calls `recipient` with `cookie` when the process owning the proxy `binder`
// dies. A local binder gives STATUS_INVALID_OPERATION, an already dead proxy
// STATUS_DEAD_OBJECT.
binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie) __INTRODUCED_IN(29);

// Undoes one AIBinder_linkToDeath; STATUS_NAME_NOT_FOUND when there is no such
// link.
binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie) __INTRODUCED_IN(29);

// The caller of the transaction this thread serves, or this process's own
// identity outside a transaction. One-way calls report pid 0.
uid_t AIBinder_getCallingUid(void) __INTRODUCED_IN(29);
pid_t AIBinder_getCallingPid(void) __INTRODUCED_IN(29);

// True while this thread serves an incoming transaction.
bool AIBinder_isHandlingTransaction(void) __INTRODUCED_IN(33);

// Adds a strong reference; the caller must already hold one.
void AIBinder_incStrong(AIBinder* binder) __INTRODUCED_IN(29);

// Drops a strong reference; the last one destroys the object.
void AIBinder_decStrong(AIBinder* binder) __INTRODUCED_IN(29);

// The strong count, for debugging only; -1 for null.
int32_t AIBinder_debugGetRefCount(AIBinder* binder) __INTRODUCED_IN(29);

// Gives `binder` the class `clazz` after checking that the object's interface
// descriptor matches (a round trip for a proxy seen for the first time).
// Required before transactions. False, with nothing changed, on a mismatch or
// when the object cannot be reached.
bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz) __INTRODUCED_IN(29);

// The class the object was made or associated with, or null.
const AIBinder_Class* AIBinder_getClass(AIBinder* binder) __INTRODUCED_IN(29);

// The onCreate result of a local object; null for proxies.
void* AIBinder_getUserData(AIBinder* binder) __INTRODUCED_IN(29);

// Starts a transaction: a new parcel, owned by the caller, holding the
// interface token of the binder's class. STATUS_INVALID_OPERATION when the
// binder has no class yet.
binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** in) __INTRODUCED_IN(29);

// Sends the parcel from AIBinder_prepareTransaction (always consumed: *in is
// set to null) and, unless `flags` has FLAG_ONEWAY, waits for the reply, which
// the caller then owns in *out. Only codes in the user range are accepted.
// Returns the transport result or the status the service's onTransact
// returned; *out is null whenever the result is not STATUS_OK.
binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in,
                                  AParcel** out, binder_flags_t flags) __INTRODUCED_IN(29);

// A weak reference to `binder` (null for null), owned by the caller.
__attribute__((warn_unused_result)) AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder)
        __INTRODUCED_IN(29);

void AIBinder_Weak_delete(AIBinder_Weak* weakBinder) __INTRODUCED_IN(29);

// A new strong reference to the object, or null once it has been destroyed.
__attribute__((warn_unused_result)) AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder)
        __INTRODUCED_IN(29);

typedef void (*AIBinder_DeathRecipient_onBinderDied)(void* cookie) __INTRODUCED_IN(29);

// Runs once for every link when it ends: after onBinderDied for a death, or
// after an unlink, a delete of the recipient or of the binder, or a failed
// AIBinder_linkToDeath. The place to free the cookie.
typedef void (*AIBinder_DeathRecipient_onBinderUnlinked)(void* cookie) __INTRODUCED_IN(33);

// A recipient calling `onBinderDied`; null if `onBinderDied` is null. One
// recipient may be linked to many binders.
__attribute__((warn_unused_result)) AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
        AIBinder_DeathRecipient_onBinderDied onBinderDied) __INTRODUCED_IN(29);

// Sets the unlink callback; call before linking.
void AIBinder_DeathRecipient_setOnUnlinked(AIBinder_DeathRecipient* recipient,
                                           AIBinder_DeathRecipient_onBinderUnlinked onUnlinked)
        __INTRODUCED_IN(33);

// Unlinks the recipient from every binder and frees it. A notification already
// under way may still complete afterwards.
void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient) __INTRODUCED_IN(29);

// The extension object set with AIBinder_setExtension (a round trip for a
// proxy); *outExt gets a strong reference or null.
binder_status_t AIBinder_getExtension(AIBinder* binder, AIBinder** outExt) __INTRODUCED_IN(30);

// Attaches `ext` to the local object `binder`, which keeps a strong reference
// to it. STATUS_INVALID_OPERATION for a proxy.
binder_status_t AIBinder_setExtension(AIBinder* binder, AIBinder* ext) __INTRODUCED_IN(30);

// The class's interface descriptor, owned by the class.
const char* AIBinder_Class_getDescriptor(const AIBinder_Class* clazz) __INTRODUCED_IN(31);

// A total order over the objects this process knows (null first): two
// AIBinder pointers are the same object when neither is less than the other.
bool AIBinder_lt(const AIBinder* lhs, const AIBinder* rhs) __INTRODUCED_IN(31);

// A copy of a weak reference, owned by the caller; null for null.
AIBinder_Weak* AIBinder_Weak_clone(const AIBinder_Weak* weak) __INTRODUCED_IN(31);

// The order of AIBinder_lt, kept even after the objects are gone.
bool AIBinder_Weak_lt(const AIBinder_Weak* lhs, const AIBinder_Weak* rhs) __INTRODUCED_IN(31);

__END_DECLS

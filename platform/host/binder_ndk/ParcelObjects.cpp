// Binders and file descriptors inside parcels.
//
// A binder record is: int32 tag, int32 index of the connection descriptor in
// the parcel's descriptor list, the object's identity key and its interface
// descriptor (short byte strings). The connection is what makes the object
// callable from the receiving process: for a local object a socket pair
// whose other end this process serves, for a proxy a fresh connection
// obtained from the owner. A ParcelFileDescriptor is an int32 non-null
// marker, a tag and an index.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/host/binder_ndk/Dispatcher.h"
#include "platform/host/binder_ndk/Limits.h"
#include "platform/host/binder_ndk/LocalBinder.h"
#include "platform/host/binder_ndk/Parcel.h"
#include "platform/host/binder_ndk/ProxyTable.h"
#include "platform/host/binder_ndk/RemoteBinder.h"
#include "platform/host/binder_ndk/TransactionCodes.h"
#include "platform/host/binder_ndk/Wire.h"

using namespace zelkor::tessel::binder;
using android::base::unique_fd;

namespace {

constexpr int32_t kNullBinder = 0;
constexpr int32_t kBinderTag = static_cast<int32_t>(PackChars('_', 'B', 'N', 'D'));
constexpr int32_t kFdTag = static_cast<int32_t>(PackChars('_', 'F', 'D', 'S'));

binder_status_t AddFd(AParcel* parcel, unique_fd fd, int32_t* index) {
    if (parcel->fds.size() >= kMaxParcelFds) return STATUS_NO_MEMORY;
    *index = static_cast<int32_t>(parcel->fds.size());
    parcel->fds.push_back(std::move(fd));
    return STATUS_OK;
}

// The descriptor an index in a received record names, or -1.
int FdAt(const AParcel* parcel, int32_t index) {
    if (index < 0 || static_cast<size_t>(index) >= parcel->fds.size()) return -1;
    return parcel->fds[static_cast<size_t>(index)].get();
}

binder_status_t ExportLocal(LocalBinder* local, unique_fd* peer) {
    unique_fd serving;
    struct stat peerStat {};
    if (!MakeConnectionPair(&serving, peer) || fstat(peer->get(), &peerStat) != 0) {
        return STATUS_NO_MEMORY;
    }
    Dispatcher& dispatcher = Dispatcher::Get();
    dispatcher.serveConnection(std::move(serving), BinderRef::Retain(local), peerStat.st_dev,
                               peerStat.st_ino);
    dispatcher.startPool();
    return STATUS_OK;
}

pid_t PeerPid(int fd) {
    ucred cred{};
    return PeerCredentials(fd, &cred) ? cred.pid : -1;
}

// The object a received record stands for: one of this process's own
// objects when the connection leads back here, otherwise a proxy.
BinderRef Resolve(const std::string& key, const std::string& descriptor, int fd) {
    struct stat st {};
    if (fstat(fd, &st) != 0 || !S_ISSOCK(st.st_mode)) return nullptr;
    if (BinderRef local = Dispatcher::Get().objectForPeer(st.st_dev, st.st_ino)) return local;
    const std::string trusted = KeyBelongsTo(key, PeerPid(fd)) ? key : std::string();
    return FindOrCreateProxy(trusted, [&] {
        unique_fd copy(fcntl(fd, F_DUPFD_CLOEXEC, 0));
        if (copy.get() < 0) return BinderRef();
        return RemoteBinder::Create(trusted, std::move(copy), descriptor);
    });
}

}  // namespace

binder_status_t AParcel_writeStrongBinder(AParcel* parcel, AIBinder* binder) {
    if (binder == nullptr) return parcel->write<int32_t>(kNullBinder);
    if (parcel->fds.size() >= kMaxParcelFds) return STATUS_NO_MEMORY;
    unique_fd connection;
    std::string key;
    std::string descriptor;
    binder_status_t status;
    if (LocalBinder* local = binder->asLocal()) {
        status = ExportLocal(local, &connection);
        key = LocalKeyPrefix() + std::to_string(local->serial());
        descriptor = local->clazz().descriptor;
    } else {
        RemoteBinder* remote = binder->asRemote();
        status = remote->openConnection(&connection);
        key = remote->key();
        descriptor = remote->knownDescriptor();
    }
    if (status != STATUS_OK) return status;
    int32_t index = -1;
    status = AddFd(parcel, std::move(connection), &index);
    if (status == STATUS_OK) status = parcel->write<int32_t>(kBinderTag);
    if (status == STATUS_OK) status = parcel->write<int32_t>(index);
    if (status == STATUS_OK) status = WriteShortBytes(parcel, key);
    if (status == STATUS_OK) status = WriteShortBytes(parcel, descriptor);
    parcel->hasBinders = true;
    return status;
}

binder_status_t AParcel_readStrongBinder(const AParcel* parcel, AIBinder** binder) {
    int32_t tag = 0;
    binder_status_t status = parcel->read(&tag);
    if (status != STATUS_OK) return status;
    if (tag == kNullBinder) {
        *binder = nullptr;
        return STATUS_OK;
    }
    if (tag != kBinderTag) return STATUS_BAD_TYPE;
    int32_t index = -1;
    std::string key;
    std::string descriptor;
    status = parcel->read(&index);
    if (status == STATUS_OK) status = ReadShortBytes(parcel, kMaxBinderTextBytes, &key);
    if (status == STATUS_OK) status = ReadShortBytes(parcel, kMaxBinderTextBytes, &descriptor);
    if (status != STATUS_OK) return status;
    const int fd = FdAt(parcel, index);
    if (fd < 0) return STATUS_BAD_VALUE;
    BinderRef object = Resolve(key, descriptor, fd);
    if (!object) return STATUS_BAD_VALUE;
    *binder = object.release();
    return STATUS_OK;
}

binder_status_t AParcel_writeParcelFileDescriptor(AParcel* parcel, int fd) {
    if (fd < 0) return fd == -1 ? parcel->write<int32_t>(0) : STATUS_BAD_VALUE;
    if (parcel->fds.size() >= kMaxParcelFds) return STATUS_NO_MEMORY;
    unique_fd copy(fcntl(fd, F_DUPFD_CLOEXEC, 0));
    if (copy.get() < 0) return STATUS_BAD_VALUE;
    int32_t index = -1;
    binder_status_t status = AddFd(parcel, std::move(copy), &index);
    if (status == STATUS_OK) status = parcel->write<int32_t>(1);
    if (status == STATUS_OK) status = parcel->write<int32_t>(kFdTag);
    if (status == STATUS_OK) status = parcel->write<int32_t>(index);
    return status;
}

binder_status_t AParcel_readParcelFileDescriptor(const AParcel* parcel, int* fd) {
    int32_t present = 0;
    binder_status_t status = parcel->read(&present);
    if (status != STATUS_OK) return status;
    if (present == 0) {
        *fd = -1;
        return STATUS_OK;
    }
    int32_t tag = 0;
    int32_t index = -1;
    status = parcel->read(&tag);
    if (status == STATUS_OK) status = parcel->read(&index);
    if (status != STATUS_OK) return status;
    if (tag != kFdTag) return STATUS_BAD_TYPE;
    const int stored = FdAt(parcel, index);
    if (stored < 0) return STATUS_BAD_VALUE;
    // The parcel keeps its own descriptor; the caller gets a duplicate.
    int copy = fcntl(stored, F_DUPFD_CLOEXEC, 0);
    if (copy < 0) return STATUS_NO_MEMORY;
    *fd = copy;
    return STATUS_OK;
}

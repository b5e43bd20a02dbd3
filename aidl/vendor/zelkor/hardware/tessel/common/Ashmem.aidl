package vendor.zelkor.hardware.tessel.common;

// A shared-memory region handed over with a call instead of copying large
// buffers through the binder transaction.
parcelable Ashmem {
    ParcelFileDescriptor fd;
    long mSize;
}

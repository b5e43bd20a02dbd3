package tessel.test;

// Shared memory handed over as a descriptor, like the product's Ashmem.
parcelable SharedBlock {
    ParcelFileDescriptor fd;
    long size;
}

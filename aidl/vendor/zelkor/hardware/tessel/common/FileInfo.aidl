package vendor.zelkor.hardware.tessel.common;

// One entry of a folder listing.
parcelable FileInfo {
    // Bare file name, or the full path for DirIntgrFiles.
    String name;
    // Size in bytes, from lstat.
    long size;
    // Last modification time in seconds since the epoch, from the same lstat;
    // lets a client pick the newest logs without a second call per file.
    long mtime;
}

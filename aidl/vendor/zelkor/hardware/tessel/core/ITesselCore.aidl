package vendor.zelkor.hardware.tessel.core;

// The system-side core service: operations that need more rights than the
// vendor daemon has.
interface ITesselCore {
    // Changes the mode of a path. Returns true on success; on failure
    // retDesc[0] says why.
    boolean ChangeMode(String path, int mode, out String[] retDesc);
    // Size in bytes of /dev/block/by-name/<partitionName>.
    long GetPartitionSize(String caller, String partitionName);
}

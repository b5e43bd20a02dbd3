package vendor.zelkor.hardware.blackbox;

// Access to the blackbox partition: event records, logs kept in its slots,
// hardware information and the configuration block.
interface IBlackboxImpl {
    // Stretches of a log slot that getStreamLog can return.
    const int LOG_TYPE_ALL = 0;
    const int LOG_TYPE_PBL = 1;
    const int LOG_TYPE_XBL = 2;
    const int LOG_TYPE_ABL = 3;
    const int LOG_TYPE_UEFI = 4;
    const int LOG_TYPE_BOOT_KMSG = 5;
    const int LOG_TYPE_DOTTING = 6;
    const int LOG_TYPE_KERNEL = 7;
    const int LOG_TYPE_PMSG = 8;

    int dotFromExternal(String caller, String time, String content);
    String getStreamLog(String caller, int type, int slot);
    void getStreamLogByPfd(String caller, int type, int slot, in ParcelFileDescriptor fd);
    void getRuntimeLog(String caller, int flags, in ParcelFileDescriptor fd);
    String getHardwareInfo(String caller);
    String getAllBlackboxConfig(String caller);
    int getBlackboxConfig(String caller, String key);
    int setAllBlackboxConfig(String caller, String json);
    int setBlackboxConfig(String caller, String key, int value);
}

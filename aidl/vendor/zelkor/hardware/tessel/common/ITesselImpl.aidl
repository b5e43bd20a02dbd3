package vendor.zelkor.hardware.tessel.common;

import vendor.zelkor.hardware.tessel.common.Ashmem;
import vendor.zelkor.hardware.tessel.common.FileInfo;
import vendor.zelkor.hardware.tessel.common.IVCameraCallback;

// Vendor file access for privileged system clients. Paths are vendor-side
// paths; a file name never begins with '/'.
interface ITesselImpl {
    FileInfo[] DirListFiles(String path);
    void EraseFileOrDirectory(String path, String fileName);
    String TesselReadFile(String path, String fileName);
    void TesselWriteFile(String path, String fileName, String data, int mode, byte appendData);
    boolean IsExists(String path, String fileName);
    void TesselCreateFolder(String path, String folderName);
    byte[] TesselReadBuffer(String path, String fileName);
    void TesselWriteBuffer(String path, String fileName, in byte[] buffer, long length);
    boolean OnFrameData(in byte[] frame, int length);
    boolean ConnectVirtualCamera();
    boolean SetVirtualCameraConfig(int width, int height, double fps);
    boolean DisconnectVirtualCamera();
    void RegisterVCameraCallback(IVCameraCallback callback);
    void UnregisterVCameraCallback();
    long GetFileSize(String path, String fileName);
    void TesselSetProp(String key, String value);
    void ReadFromFile(in Ashmem mem, String path, String fileName);
    void WriteToFile(in Ashmem mem, String path, String fileName, long size);
    long GetPartitionSize(String caller, String partitionName);
    void TesselCreateFolderMode(String path, String folderName, int mode);
    void CopyFile(String srcPath, String destPath);
    FileInfo[] DirIntgrFiles(String path);
}

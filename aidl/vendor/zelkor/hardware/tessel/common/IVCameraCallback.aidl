package vendor.zelkor.hardware.tessel.common;

// Events of the virtual camera, delivered to the client that registered.
interface IVCameraCallback {
    // The camera wants a frame of this size.
    oneway void onFrameRequested(int width, int height);
    // The virtual camera was connected (true) or disconnected (false).
    oneway void onConnectionChanged(boolean connected);
}

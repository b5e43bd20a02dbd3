package vendor.zelkor.hardware.tessel.common;

// The vendor end of the internal broadcast channel: an intent as its action
// and the JSON text of its extras.
interface IHalvexIntl {
    void transferMessage(String action, String json);
}

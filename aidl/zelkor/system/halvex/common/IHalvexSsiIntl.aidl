package zelkor.system.halvex.common;

// The system end of the internal broadcast channel.
interface IHalvexSsiIntl {
    void transferMessage(String action, String json);
}

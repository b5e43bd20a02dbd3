package zelkor.system.halvex.common;

// The system-side service that forwards vendor reports to analytics.
interface IHalvexSsi {
    // Returns 0 when the report was accepted.
    int reportEvent(String eventId, String moduleName, String json, int flags);
}

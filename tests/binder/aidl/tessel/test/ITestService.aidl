package tessel.test;

import tessel.test.ICallback;

interface ITestService {
    @utf8InCpp String echoUtf8(@utf8InCpp String value);
    int echoInt(int value);
    byte[] echoBytes(in byte[] value);
    // values gets `count` entries i*i; names comes back with "!" appended.
    void fillOut(int count, out int[] values, inout String[] names);

    ParcelFileDescriptor echoFd(in ParcelFileDescriptor fd);

    IBinder echoBinder(IBinder binder);
    boolean sameBinder(IBinder first, IBinder second);
    // Calls callback.onEvent(value, "ping") and returns its result.
    int callBack(ICallback callback, int value);

    // AStatus_fromStatus(code) for EX_TRANSACTION_FAILED, else the exception
    // with `message` (and `code` as the service-specific error).
    void fail(int exceptionCode, int code, String message);

    // Returns {calling pid, calling uid, own pid}.
    int[] callerIds();
    // Waits until `parties` calls are inside at once (true) or timeoutMs
    // passes (false).
    boolean rendezvous(int parties, int timeoutMs);
    // Blocks its binder thread until release() or timeoutMs.
    oneway void blockOneway(int timeoutMs);
    void block(int timeoutMs);
    // Returns once a block call is blocked (true) or after timeoutMs.
    boolean waitUntilBlocked(int timeoutMs);
    void release();
}

package tessel.test;

import tessel.test.ICallback;
import tessel.test.Record;
import tessel.test.SharedBlock;

interface ITestService {
    const int ERROR_REJECTED = 7;

    String echoString(String value);
    @utf8InCpp String echoUtf8(@utf8InCpp String value);
    int echoInt(int value);
    long echoLong(long value);
    boolean echoBoolean(boolean value);
    byte echoByte(byte value);
    char echoChar(char value);
    float echoFloat(float value);
    double echoDouble(double value);
    byte[] echoBytes(in byte[] value);
    int[] echoInts(in int[] value);
    long[] echoLongs(in long[] value);
    boolean[] echoBooleans(in boolean[] value);
    float[] echoFloats(in float[] value);
    double[] echoDoubles(in double[] value);
    char[] echoChars(in char[] value);
    String[] echoStrings(in String[] value);
    @nullable String echoNullableString(@nullable String value);
    @nullable int[] echoNullableInts(in @nullable int[] value);
    @nullable String[] echoNullableStrings(in @nullable String[] value);
    Record echoRecord(in Record value);
    Record[] echoRecords(in Record[] value);
    // values gets `count` entries i*i; names comes back with "!" appended.
    void fillOut(int count, out int[] values, inout String[] names);

    ParcelFileDescriptor echoFd(in ParcelFileDescriptor fd);
    // Shared memory made by the service holding `content`.
    SharedBlock makeSharedBlock(String content);
    // The text the caller put into its shared memory.
    String readSharedBlock(in SharedBlock block);

    IBinder echoBinder(IBinder binder);
    boolean sameBinder(IBinder first, IBinder second);
    // Calls callback.onEvent(value, "ping") and returns its result.
    int callBack(ICallback callback, int value);
    // The pid the callback reports as its caller (the service's own pid).
    int callbackCallerPid(ICallback callback);

    void throwServiceSpecific(int code, String message);
    void throwException(int exceptionCode, String message);
    // Returns AStatus_fromStatus(status).
    void failTransaction(int status);

    // Returns {calling pid, calling uid, own pid}.
    int[] callerIds();
    // Waits until `parties` calls are inside at once (true) or timeoutMs
    // passes (false).
    boolean rendezvous(int parties, int timeoutMs);
    // Blocks its binder thread until release() or timeoutMs.
    oneway void blockOneway(int timeoutMs);
    // Returns once a blockOneway call is blocked (true) or after timeoutMs.
    boolean waitUntilBlocked(int timeoutMs);
    void release();
    // Sleeps; used to have a call in flight when the service is killed.
    int sleepFor(int millis);
    // Returns once a sleepFor call is under way (true) or after timeoutMs.
    boolean waitUntilSleeping(int timeoutMs);
}

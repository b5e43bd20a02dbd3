package tessel.test;

interface ICallback {
    // Returns value + the length of text, computed in the callback's process.
    int onEvent(int value, String text);
}

package tessel.test;

import tessel.test.Inner;

// A parcelable with every kind of field the product interfaces use.
parcelable Record {
    String name;
    long size;
    long mtime;
    boolean flag;
    double ratio;
    Inner inner;
    int[] values;
    String[] tags;
    @nullable String note;
}

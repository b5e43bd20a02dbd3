package tessel.test;

parcelable Inner {
    int id;
    String label;
}

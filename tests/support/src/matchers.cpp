// Out-of-line anchor of the test support library.
namespace ara_test {
int SupportLibraryAnchor() {
    return 0;
}
}  // namespace ara_test

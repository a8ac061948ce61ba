// The shared library exports its C entries under their plain names.
#include <dlfcn.h>
#include <gtest/gtest.h>

TEST(SharedLibrary, ExportsUndecoratedEntries) {
    void* lib = dlopen(FBC_BINARY_DIR "/libfbc.so", RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr) << dlerror();
    EXPECT_NE(dlsym(lib, "FBD_Execute"), nullptr);
    EXPECT_NE(dlsym(lib, "FBD_ExecuteChecked"), nullptr);
    dlclose(lib);
}

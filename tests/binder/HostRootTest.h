// Base fixture: every test gets its own host root, which holds the service
// sockets and manifests the binder runtime uses.
#pragma once

#include <gtest/gtest.h>

#include "TempRoot.h"
#include "platform/Platform.h"

namespace zelkor::tessel::testing {

class HostRootTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(platform::SetRoot(mRoot.path())); }

    TempRoot mRoot;
};

}  // namespace zelkor::tessel::testing

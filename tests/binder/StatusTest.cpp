// AStatus: what each constructor means to the getters and descriptions.
#include <android/binder_auto_utils.h>
#include <gtest/gtest.h>

#include <sstream>

namespace zelkor::tessel::testing {
namespace {

using ndk::ScopedAStatus;

TEST(StatusTest, OkStatuses) {
    const ScopedAStatus oks[] = {ScopedAStatus::ok(), ScopedAStatus::fromStatus(STATUS_OK),
                                 ScopedAStatus::fromExceptionCode(EX_NONE)};
    for (const ScopedAStatus& status : oks) {
        EXPECT_TRUE(status.isOk());
        EXPECT_EQ(status.getExceptionCode(), EX_NONE);
        EXPECT_EQ(status.getStatus(), STATUS_OK);
        EXPECT_EQ(status.getDescription(), "No error");
    }
    // An empty holder was never given a result.
    EXPECT_FALSE(ScopedAStatus().isOk());
}

TEST(StatusTest, TransportErrorsAreTransactionFailures) {
    ScopedAStatus dead = ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
    EXPECT_FALSE(dead.isOk());
    EXPECT_EQ(dead.getExceptionCode(), EX_TRANSACTION_FAILED);
    EXPECT_EQ(dead.getStatus(), STATUS_DEAD_OBJECT);
    EXPECT_EQ(dead.getServiceSpecificError(), 0);

    ScopedAStatus failed = ScopedAStatus::fromExceptionCode(EX_TRANSACTION_FAILED);
    EXPECT_EQ(failed.getStatus(), STATUS_FAILED_TRANSACTION);

    // Values outside the defined sets collapse to their catch-alls.
    EXPECT_EQ(ScopedAStatus::fromStatus(12345).getStatus(), STATUS_UNKNOWN_ERROR);
    EXPECT_EQ(ScopedAStatus::fromExceptionCode(-77).getExceptionCode(), EX_TRANSACTION_FAILED);
}

TEST(StatusTest, ExceptionsAndServiceSpecificErrors) {
    ScopedAStatus argument = ScopedAStatus::fromExceptionCodeWithMessage(EX_ILLEGAL_ARGUMENT, "no");
    EXPECT_EQ(argument.getExceptionCode(), EX_ILLEGAL_ARGUMENT);
    EXPECT_STREQ(argument.getMessage(), "no");
    EXPECT_EQ(argument.getStatus(), STATUS_OK);

    ScopedAStatus specific = ScopedAStatus::fromServiceSpecificErrorWithMessage(-22, "invalid");
    EXPECT_EQ(specific.getExceptionCode(), EX_SERVICE_SPECIFIC);
    EXPECT_EQ(specific.getServiceSpecificError(), -22);
    EXPECT_STREQ(specific.getMessage(), "invalid");
    EXPECT_STREQ(ScopedAStatus::fromServiceSpecificError(3).getMessage(), "");

    std::ostringstream text;
    text << specific;
    EXPECT_EQ(text.str(), "Status(-8, EX_SERVICE_SPECIFIC): '-22: invalid'");
    EXPECT_EQ(ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT).getDescription(),
              "Status(-129, EX_TRANSACTION_FAILED): 'DEAD_OBJECT: '");
}

}  // namespace
}  // namespace zelkor::tessel::testing

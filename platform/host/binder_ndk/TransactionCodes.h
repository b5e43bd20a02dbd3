// Transaction codes outside the user range, served by the runtime itself.
#pragma once

#include <android/binder_ibinder.h>

namespace zelkor::tessel::binder {

constexpr transaction_code_t PackChars(char a, char b, char c, char d) {
    return (static_cast<transaction_code_t>(a) << 24) | (static_cast<transaction_code_t>(b) << 16) |
           (static_cast<transaction_code_t>(c) << 8) | static_cast<transaction_code_t>(d);
}

constexpr transaction_code_t kPingTransaction = PackChars('_', 'P', 'N', 'G');
constexpr transaction_code_t kDumpTransaction = PackChars('_', 'D', 'M', 'P');
constexpr transaction_code_t kInterfaceTransaction = PackChars('_', 'N', 'T', 'F');
constexpr transaction_code_t kExtensionTransaction = PackChars('_', 'E', 'X', 'T');

constexpr bool IsUserTransaction(transaction_code_t code) {
    return code >= FIRST_CALL_TRANSACTION && code <= LAST_CALL_TRANSACTION;
}

}  // namespace zelkor::tessel::binder

// What the store or gRPC answers, as a StoreFailure.
#pragma once

#include <grpcpp/support/status.h>

#include <string>

#include "store/Store.h"

namespace fleet {

enum class Asked { READ, CHANGE };

// Of a call that was sent to the endpoint.
[[nodiscard]] StoreFailure failureOf(const grpc::Status& status, const std::string& endpoint, Asked asked);
[[nodiscard]] StoreFailure failureOf(Trouble trouble, const std::string& endpoint, std::string message);

// The call had no token, or one that is none any more: with a new one it may be answered.
[[nodiscard]] bool wantsToken(const grpc::Status& status);
// Authentication is switched off.
[[nodiscard]] bool knowsNoUsers(const grpc::Status& status);

}  // namespace fleet

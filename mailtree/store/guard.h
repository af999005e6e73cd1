// store/guard.h - the boundary that no exception crosses. Private.
#pragma once

#include <optional>
#include <utility>

#include "mailtree/base/Object.h"
#include "mailtree/base/Result.h"

namespace mailtree {

/// Runs an operation; what it throws becomes an error. Costs nothing when it does not.
template <class T, class Body>
Result<T> guarded(Body&& body) {
  std::optional<Result<T>> result;
  neverThrow(false, [&] {
    result.emplace(std::forward<Body>(body)());
    return true;
  });
  if (result) return *std::move(result);
  return Error{ErrorCode::noMemory, "not enough memory", {}};
}

}  // namespace mailtree

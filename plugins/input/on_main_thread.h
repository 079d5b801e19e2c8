// Runs work that needs the main thread there and hands back its result: at
// once when already on it (a synchronous hop to itself would deadlock on
// macOS), else through a synchronous hop.
#pragma once

#include <optional>
#include <type_traits>

#include "platform/main_thread.h"

namespace orla {

template <class Work>
auto onMainThread(MainThread& main, Work work) -> decltype(work()) {
  using Result = decltype(work());
  if (main.isMainThread()) return work();
  if constexpr (std::is_void_v<Result>) {
    main.runSync(work);
  } else {
    std::optional<Result> result;
    main.runSync([&] { result.emplace(work()); });
    return std::move(*result);
  }
}

}  // namespace orla

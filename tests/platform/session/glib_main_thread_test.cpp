// The Linux main thread: work posted from other threads runs on the main
// thread's GLib loop, and posts made while nothing iterates the loop leave
// one pending source, not one each.
#include <gtest/gtest.h>
#include <glib.h>

#include <atomic>
#include <thread>

#include "platform/linux/glib_main_thread.h"

namespace orla::linux_desktop {
namespace {

void iterateUntilIdle() {
  while (g_main_context_pending(nullptr)) g_main_context_iteration(nullptr, FALSE);
}

// The default context numbers the sources attached to it in order, so the
// ids of two probes tell how many sources were attached between them.
guint probeSourceId() {
  GSource* source = g_idle_source_new();
  const guint id = g_source_attach(source, nullptr);
  g_source_destroy(source);
  g_source_unref(source);
  return id;
}

TEST(GLibMainThread, PostsWhileTheLoopIsIdleShareOneSourceAndAllRun) {
  iterateUntilIdle();
  GLibMainThread mainThread;
  std::atomic<int> ran{0};
  const guint before = probeSourceId();
  std::thread poster([&] {
    for (int i = 0; i < 1000; ++i) mainThread.runAsync([&] { ++ran; });
  });
  poster.join();
  EXPECT_EQ(probeSourceId() - before, 2u) << "one source for the 1,000 posts";
  EXPECT_EQ(ran.load(), 0) << "nothing runs before the main thread iterates";
  iterateUntilIdle();
  EXPECT_EQ(ran.load(), 1000);
  // Work posted after the drain gets a source of its own, and runs.
  const guint drained = probeSourceId();
  mainThread.runAsync([&] { ++ran; });
  EXPECT_EQ(probeSourceId() - drained, 2u);
  iterateUntilIdle();
  EXPECT_EQ(ran.load(), 1001);
}

}  // namespace
}  // namespace orla::linux_desktop

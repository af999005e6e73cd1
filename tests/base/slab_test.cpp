#include "mailtree/base/Slab.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <thread>
#include <vector>

namespace mailtree {
namespace {

struct Counted {
  explicit Counted(int& alive, bool fails = false) : m_alive(&alive) {
    if (fails) throw std::runtime_error("as told");
    ++alive;
  }
  ~Counted() { --*m_alive; }
  static void operator delete(Counted* object, std::destroying_delete_t) noexcept { destroyInSlab(object); }

  int* m_alive;
  Slab* m_slab = nullptr;
};

TEST(Slab, objects_go_one_by_one_in_any_order_also_after_their_pool) {
  for (const std::size_t expected : {0, 1, 3, 16, 40}) {
    int alive = 0;
    std::vector<std::unique_ptr<Counted>> objects;
    {
      SlabPool<Counted> pool(expected);
      for (int i = 0; i < 40; ++i) objects.emplace_back(pool.create(alive));
      EXPECT_THROW(pool.create(alive, true), std::runtime_error);
      for (int i = 0; i < 40; i += 3) objects[static_cast<std::size_t>(i)].reset();
    }
    objects.emplace_back(new Counted(alive));
    EXPECT_EQ(alive, 40 - 14 + 1) << expected;
    while (!objects.empty()) objects.erase(objects.begin() + static_cast<std::ptrdiff_t>(objects.size() / 2));
    EXPECT_EQ(alive, 0) << expected;
  }
}

TEST(Slab, neighbours_may_be_destroyed_by_different_threads) {
  int here = 0, there = 0;
  std::vector<std::unique_ptr<Counted>> mine, others;
  {
    SlabPool<Counted> pool(16);
    for (int i = 0; i < 400; ++i) {
      mine.emplace_back(pool.create(here));
      others.emplace_back(pool.create(there));
    }
  }
  std::thread thread([&others] { others.clear(); });
  mine.clear();
  thread.join();
  EXPECT_EQ(here + there, 0);
}

}  // namespace
}  // namespace mailtree

// Objects, who owns them and where they live.
#include "mailtree/base/Object.h"

#include <array>
#include <memory>
#include <new>
#include <stdexcept>
#include <thread>

#include "mailtree/base/Containers.h"
#include "mailtree/base/Slab.h"
#include "tests/base/tables.h"

namespace mailtree {
namespace {

/// Counts how many of it live.
template <class Base>
class Counted final : public Base {
 public:
  explicit Counted(int& alive) : m_alive(alive) { ++m_alive; }
  ~Counted() override { --m_alive; }

 private:
  int& m_alive;
};
using Object = Counted<SorvikObject>;
using Shared = Counted<RefCountedObject>;

TEST(Object, loses_its_marker_when_destroyed) {
  alignas(StringBuffer) std::array<unsigned char, sizeof(StringBuffer)> storage{};
  auto* const text = new (storage.data()) StringBuffer("x");
  EXPECT_TRUE(text->isValidObject());
  text->~StringBuffer();
  const auto* const bytes = reinterpret_cast<const std::uint32_t*>(storage.data());
  for (std::size_t i = 0; i < storage.size() / sizeof(std::uint32_t); ++i)
    EXPECT_FALSE(hasMarker(bytes[i], kObjectMarker)) << "word " << i;
}

TEST(Object, with_a_count_starts_uncounted_and_ends_with_its_last_holder) {
  int alive = 0;
  auto* const object = new Shared(alive);
  EXPECT_EQ(object->refCount(), 0);
  object->incRefCount();
  {
    const RefPtr<Shared> first(object);
    RefPtr<Shared> second(first);
    second = RefPtr<Shared>();
    EXPECT_EQ(object->refCount(), 2);
  }
  EXPECT_EQ(alive, 1);
  object->decRefCount();
  EXPECT_EQ(alive, 0);
}

TEST(Object, owner_deletes_what_it_still_holds) {
  int alive = 0;
  auto* const released = new Object(alive);
  {
    ObjectOwner owner(new Object(alive));
    owner.own(new Object(alive));
    EXPECT_EQ(alive, 2) << "the first one went when the second came";
    ObjectOwner other(released);
    EXPECT_EQ(other.release(), released);
  }
  EXPECT_EQ(alive, 1);
  released->deleteObject();
  EXPECT_EQ(alive, 0);
}

TEST(Object, exceptions_become_the_failure_value) {
  EXPECT_EQ(neverThrow(-1, []() -> int { throw std::bad_alloc(); }), -1);
  EXPECT_EQ(neverThrow(-1, []() -> int { throw 7; }), -1);
  EXPECT_EQ(neverThrow(-1, [] { return 3; }), 3);
}

TEST(ExtPtrArray, deletes_at_its_end_only_what_it_owns) {
  int alive = 0;
  auto *const lent = new Object(alive), *const inserted = new Object(alive),
              *const disowned = new Object(alive);
  {
    ExtPtrArray array;
    EXPECT_FALSE(array.appendObject(nullptr));
    EXPECT_TRUE(array.appendObject(new Object(alive)));
    EXPECT_TRUE(array.appendPtr(lent));
    EXPECT_TRUE(array.appendPtr(nullptr));
    EXPECT_TRUE(array.insertAt(0, inserted));
    EXPECT_TRUE(array.appendObject(disowned));
    EXPECT_EQ(array.removeAt(4), disowned);
    EXPECT_EQ(array.getSize(), 4);
  }
  EXPECT_EQ(alive, 3);
  ExtPtrArray all;
  all.appendPtr(lent);
  all.appendPtr(nullptr);
  all.appendObject(inserted);
  all.appendPtr(disowned);
  all.removeAllObjects();
  EXPECT_EQ(alive, 0) << "removeAllObjects deletes lent entries too";
  EXPECT_EQ(all.getSize(), 0);
}

TEST(ExtPtrArray, answers_out_of_range_with_null_and_appends_inserts_from_there) {
  StringBuffer a("a"), b("b"), c("c");
  ExtPtrArray array;
  EXPECT_EQ(array.removeAt(0), nullptr);
  array.insertAt(7, &a);
  array.insertAt(-1, &c);
  array.insertAt(1, &b);
  EXPECT_EQ(array.at<StringBuffer>(0), &a);
  EXPECT_EQ(array.at<StringBuffer>(1), &b);
  EXPECT_EQ(array.at<StringBuffer>(2), &c);
  for (const int index : {-1, 3, -2147483647 - 1, 2147483647}) {
    EXPECT_EQ(array.elementAt(index), nullptr) << index;
    EXPECT_EQ(array.removeAt(index), nullptr) << index;
  }
}

TEST(ExtPtrArray, transfers_entries_with_their_ownership) {
  int alive = 0;
  Object lent(alive);
  {
    ExtPtrArray to;
    {
      ExtPtrArray from;
      from.appendObject(new Object(alive));
      from.appendPtr(&lent);
      EXPECT_TRUE(from.transferPtrs(from));
      EXPECT_EQ(from.getSize(), 2) << "a transfer to itself changes nothing";
      EXPECT_TRUE(from.transferPtrs(to));
      EXPECT_EQ(from.getSize(), 0);
    }
    EXPECT_EQ(alive, 2);
    EXPECT_EQ(to.elementAt(1), &lent);
  }
  EXPECT_EQ(alive, 1);
}

TEST(ExtPtrArraySb, finds_strings_with_and_without_case) {
  ExtPtrArraySb array;
  EXPECT_TRUE(array.appendString("Alpha"));
  EXPECT_TRUE(array.appendSb(StringBuffer::createNewSB("beta")));
  EXPECT_FALSE(array.appendSb(nullptr));
  EXPECT_TRUE(array.containsString("Alpha", true));
  EXPECT_FALSE(array.containsString("alpha", true));
  EXPECT_TRUE(array.containsString("ALPHA", false));
  EXPECT_FALSE(array.containsString("alph", false));
  EXPECT_EQ(array.sbAt(2), nullptr);
  array.removeAllSbs();
  EXPECT_EQ(array.getSize(), 0);
}

TEST(Queue, gives_back_in_order) {
  StringBuffer a, b;
  _svQueue queue;
  EXPECT_EQ(queue.pop(), nullptr);
  queue.push(&a);
  queue.push(&b);
  EXPECT_EQ(queue.pop(), &a);
  EXPECT_TRUE(queue.hasObjects());
  EXPECT_EQ(queue.pop(), &b);
  EXPECT_FALSE(queue.hasObjects());
}

struct Slabbed {
  explicit Slabbed(int& alive, bool fails = false) : m_alive(&alive) {
    if (fails) throw std::runtime_error("as told");
    ++alive;
  }
  ~Slabbed() { --*m_alive; }
  static void operator delete(Slabbed* object, std::destroying_delete_t) noexcept { destroyInSlab(object); }

  int* m_alive;
  Slab* m_slab = nullptr;
};

TEST(Slab, objects_go_one_by_one_in_any_order_also_after_their_pool) {
  for (const std::size_t expected : {0, 1, 3, 16, 40}) {
    int alive = 0;
    std::vector<std::unique_ptr<Slabbed>> objects;
    {
      SlabPool<Slabbed> pool(expected);
      for (int i = 0; i < 40; ++i) objects.emplace_back(pool.create(alive));
      EXPECT_THROW(pool.create(alive, true), std::runtime_error);
      for (std::size_t i = 0; i < 40; i += 3) objects[i].reset();
    }
    objects.emplace_back(new Slabbed(alive));
    EXPECT_EQ(alive, 40 - 14 + 1) << expected;
    while (!objects.empty()) objects.erase(objects.begin() + static_cast<std::ptrdiff_t>(objects.size() / 2));
    EXPECT_EQ(alive, 0) << expected;
  }
}

TEST(Slab, neighbours_may_be_destroyed_by_different_threads) {
  int here = 0, there = 0;
  std::vector<std::unique_ptr<Slabbed>> mine, others;
  {
    SlabPool<Slabbed> pool(16);
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

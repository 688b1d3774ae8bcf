#include "runtime/Ptr.h"

#include <gtest/gtest.h>

#include <memory>
#include <type_traits>
#include <unordered_set>
#include <vector>

#include "tests/support/RangeError.h"

namespace {

using testing_support::rangeError;
using Zet::make;
using Zet::Ptr;
using Zet::PtrInterface;
using Zet::U32;
using Zet::ValidPtr;

/// Notes its end, so that a test can check it.
class Counted : public PtrInterface {
 public:
  explicit Counted(int* ended = nullptr) : ended_(ended) {}
  ~Counted() override {
    if (ended_ != nullptr) ++*ended_;
  }
  using PtrInterface::mark;

 private:
  int* ended_;
};

class Derived : public Counted {
  using Counted::Counted;
};

/// Keeps its storage, so that what happened to its word can be read afterwards.
class Recorder : public PtrInterface {
 public:
  ~Recorder() override = default;
  using PtrInterface::mark;
  int releases = 0;

 protected:
  void handleZeroRef() override { ++releases; }
};

// The count word --------------------------------------------------------------------------------------

TEST(CountWord, HasItsMarksAboveTheCount) {
  Recorder object;
  EXPECT_EQ(object.countWord(), 0u);
  object.newRef();
  EXPECT_EQ(object.countWord(), 1u);
  object.hasNotificationActiveIs(true);
  EXPECT_EQ(object.countWord(), 0x20000001u);
  EXPECT_TRUE(object.hasNotificationActive());
  object.zetMarkedForDeletionIs(true);
  EXPECT_EQ(object.countWord(), 0xa0000001u);
  EXPECT_TRUE(object.zetMarkedForDeletion());
  object.mark(PtrInterface::heldBit, true);
  EXPECT_EQ(object.countWord(), 0xe0000001u);
  EXPECT_EQ(object.references(), 1u);
}

TEST(CountWord, ClearingAMarkLeavesTheRest) {
  Recorder object;
  object.newRef();
  object.hasNotificationActiveIs(true);
  object.zetMarkedForDeletionIs(true);
  object.hasNotificationActiveIs(false);
  EXPECT_EQ(object.countWord(), 0x80000001u);
  EXPECT_FALSE(object.hasNotificationActive());
  object.zetMarkedForDeletionIs(false);
  EXPECT_EQ(object.countWord(), 1u);
  EXPECT_FALSE(object.zetMarkedForDeletion());
}

TEST(CountWord, SettingAMarkTwiceIsTheSameAsOnce) {
  Recorder object;
  object.zetMarkedForDeletionIs(true);
  object.zetMarkedForDeletionIs(true);
  EXPECT_EQ(object.countWord(), 0x80000000u);
}

TEST(CountWord, CountsUpAndDownByOne) {
  Recorder object;
  for (U32 n = 1; n <= 5; ++n) {
    object.newRef();
    EXPECT_EQ(object.references(), n);
  }
  for (U32 n = 4; n >= 1; --n) {
    object.deleteRef();
    EXPECT_EQ(object.references(), n);
    EXPECT_EQ(object.releases, 0);
  }
  object.deleteRef();
  EXPECT_EQ(object.countWord(), 0u);
  EXPECT_EQ(object.releases, 1);
}

TEST(CountWord, TheLastReferenceReleasesWhateverTheMarksOfTheReactor) {
  struct Case {
    char const* name;
    U32 marks;
    int releases;
  };
  for (Case c : {Case{"none", 0, 1}, Case{"notification active", PtrInterface::notificationActiveBit, 1},
                 Case{"zombie", PtrInterface::zombieBit, 1}, Case{"held", PtrInterface::heldBit, 0}}) {
    Recorder object;
    object.newRef();
    if (c.marks != 0) object.mark(c.marks, true);
    object.deleteRef();
    EXPECT_EQ(object.releases, c.releases) << c.name;
    EXPECT_EQ(object.countWord(), c.marks) << c.name;
  }
}

TEST(CountWord, TheHeldBitIsNoReferenceOfTheCount) {
  Recorder object;
  object.mark(PtrInterface::heldBit, true);
  EXPECT_EQ(object.references(), 0u);
  object.newRef();
  EXPECT_EQ(object.references(), 1u);
}

// Immortality -----------------------------------------------------------------------------------------

TEST(Immortality, NoCountingMovesTheWordAndNothingIsReleased) {
  Recorder object;
  object.immortalIs();
  EXPECT_TRUE(object.isImmortal());
  for (int i = 0; i < 1000; ++i) object.deleteRef();
  EXPECT_EQ(object.countWord(), PtrInterface::immortalWord);
  for (int i = 0; i < 3000; ++i) object.newRef();
  EXPECT_EQ(object.countWord(), PtrInterface::immortalWord);
  { Ptr<Recorder> held(&object); }
  EXPECT_EQ(object.countWord(), PtrInterface::immortalWord);
  EXPECT_EQ(object.releases, 0);
}

TEST(Immortality, IsTheTopByteAloneAndExactly) {
  Recorder object;
  EXPECT_FALSE(object.isImmortal());
  object.immortalIs();
  EXPECT_EQ(object.countWord() >> 24, 0x1fu);
  for (U32 bit : {PtrInterface::notificationActiveBit, PtrInterface::heldBit, PtrInterface::zombieBit}) {
    object.mark(bit, true);
    EXPECT_FALSE(object.isImmortal()) << std::hex << object.countWord();
    object.mark(bit, false);
    EXPECT_TRUE(object.isImmortal());
  }
}

// Ptr -------------------------------------------------------------------------------------------------

TEST(Ptr, TheLastOneEndsTheObject) {
  int ended = 0;
  Ptr<Counted> first = make<Counted>(&ended);
  {
    Ptr<Counted> second = first;
    EXPECT_EQ(first->references(), 2u);
  }
  EXPECT_EQ(first->references(), 1u);
  EXPECT_EQ(ended, 0);
  first = nullptr;
  EXPECT_EQ(ended, 1);
  EXPECT_FALSE(first);
}

TEST(Ptr, MovingCountsNothing) {
  Ptr<Counted> first = make<Counted>();
  Counted* object = first.ptr();
  Ptr<Counted> second = std::move(first);
  EXPECT_EQ(second.ptr(), object);
  EXPECT_EQ(second->references(), 1u);
  EXPECT_FALSE(first);  // NOLINT: a moved-from Ptr is null
}

TEST(Ptr, AssigningItToItselfKeepsTheObject) {
  int ended = 0;
  Ptr<Counted> p = make<Counted>(&ended);
  Ptr<Counted>& same = p;
  p = same;
  EXPECT_EQ(ended, 0);
  EXPECT_EQ(p->references(), 1u);
}

/// An object whose end looks at the pointer that held it.
class LooksBack : public PtrInterface {
 public:
  LooksBack(Ptr<LooksBack>* holder, LooksBack** seen) : holder_(holder), seen_(seen) {}
  ~LooksBack() override {
    if (seen_ != nullptr) *seen_ = holder_->ptr();
  }

 private:
  Ptr<LooksBack>* holder_;
  LooksBack** seen_;
};

TEST(Ptr, HoldsTheNewObjectBeforeTheFormerIsReleased) {
  Ptr<LooksBack> holder;
  LooksBack* seen = nullptr;
  holder = make<LooksBack>(&holder, &seen);
  Ptr<LooksBack> next = make<LooksBack>(nullptr, nullptr);
  holder = next;
  EXPECT_EQ(seen, next.ptr());
}

TEST(Ptr, ConvertsUpTheClassesAndToConst) {
  Ptr<Derived> derived = make<Derived>();
  Ptr<Counted> base = derived;
  Ptr<PtrInterface const> constant = base;
  EXPECT_EQ(derived->references(), 3u);
  EXPECT_TRUE(constant == derived);
  static_assert(!std::is_convertible_v<Ptr<Counted>, Ptr<Derived>>);
  static_assert(!std::is_convertible_v<Ptr<Counted const>, Ptr<Counted>>);
}

TEST(Ptr, ComparesByTheObject) {
  Ptr<Counted> a = make<Counted>();
  Ptr<Counted> b = make<Counted>();
  Ptr<Counted> none;
  EXPECT_TRUE(a == a);
  EXPECT_FALSE(a == b);
  EXPECT_TRUE(a == a.ptr());
  EXPECT_TRUE(none == nullptr);
  EXPECT_TRUE(!none);
  std::unordered_set<Ptr<Counted>> set{a, b, a};
  EXPECT_EQ(set.size(), 2u);
}

/// Makes and drops a pointer to itself at both ends of its life.
class TouchesItself : public PtrInterface {
 public:
  explicit TouchesItself(int* ended) : ended_(ended) {
    ConstructionGuard guard(*this);
    Ptr<TouchesItself> self(this);
  }
  ~TouchesItself() override {
    Ptr<TouchesItself> self(this);
    ++*ended_;
  }

 private:
  int* ended_;
};

TEST(Ptr, MadeAndDroppedInAConstructorOrDestructorDoesNoHarm) {
  int ended = 0;
  Ptr<TouchesItself> object = make<TouchesItself>(&ended);
  EXPECT_EQ(object->countWord(), 1u);
  EXPECT_EQ(ended, 0);
  object = nullptr;
  EXPECT_EQ(ended, 1);
}

// ValidPtr --------------------------------------------------------------------------------------------

TEST(ValidPtr, RejectsNullByItsText) {
  Counted* none = nullptr;
  Ptr<Derived> nonePtr;
  EXPECT_EQ(rangeError([&] { ValidPtr<Counted> p(none); }), "null ValidPtr");
  EXPECT_EQ(rangeError([&] { ValidPtr<Counted> p(nonePtr); }), "null ValidPtr");
}

TEST(ValidPtr, IsAPtrToWhatItWasGiven) {
  Ptr<Derived> derived = make<Derived>();
  {
    ValidPtr<Counted> p(derived);
    EXPECT_EQ(p.ptr(), derived.ptr());
    EXPECT_EQ(derived->references(), 2u);
  }
  EXPECT_EQ(derived->references(), 1u);
}

}  // namespace

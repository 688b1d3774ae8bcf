#include <string>
#include <vector>

#include "runtime/Model.h"
#include "tests/support/RangeError.h"
#include "tests/support/TestContext.h"

namespace test {
namespace {

using testing_support::rangeError;
using Zet::Ptr;
using Zet::U32;

/// What a declaration would make: a value with a range, one without, and a collection of values.
class Gauge : public Zet::Entity {
  template <auto On>
  auto notifier(Zet::AttributeId id) {
    return [this, id] { Zet::notify<On>(*this, id); };
  }

 public:
  enum : Zet::AttributeId { attrLevel = 0, attrLimit = 1, attrMark = 2 };
  class NotifieeConst : public Zet::NotifieeConstOf<Gauge> {
   public:
    virtual void onLevel() {}
    virtual void onLimit() {}
    virtual void onMark(U32 const&) {}
  };

  U32 level() const { return level_; }
  void levelIs(U32 const& value) {
    Zet::setValue(level_, value, notifier<&NotifieeConst::onLevel>(attrLevel));
  }
  U32 limit() const { return limit_; }
  void limitIs(U32 const& value) {
    Zet::setValue(limit_, value, Zet::Range<U32>{2, 9, "Gauge::limit < 2 or > 9 not allowed"},
                  notifier<&NotifieeConst::onLimit>(attrLimit));
  }
  int mark(U32 const& key) const { return Zet::memberValue(mark_, key); }
  void markIs(U32 const& key, int value) {
    Zet::setMember(mark_, key, value, [this](U32 const& changed) { notifyMark(changed); });
  }
  int markDel(U32 const& key) {
    return Zet::delMember(mark_, key, [this](U32 const& changed) { notifyMark(changed); });
  }
  void markDelAll() {
    Zet::delAll(mark_, [this](U32 const& key) { markDel(key); });
  }
  U32 markCount() const { return mark_.size(); }

 private:
  void notifyMark(U32 const& key) { Zet::notify<&NotifieeConst::onMark>(*this, attrMark, key); }

  U32 level_ = 0;
  U32 limit_ = 5;
  Zet::ValueMap<int, U32> mark_;
};

/// Writes down each notification with the gauge's value at that time.
class GaugeWatch : public Gauge::NotifieeConst {
 public:
  void onLevel() override { note("level " + std::to_string(notifier()->level())); }
  void onLimit() override { note("limit " + std::to_string(notifier()->limit())); }
  void onMark(U32 const& key) override {
    note("mark " + std::to_string(key) + "=" + std::to_string(notifier()->mark(key)));
  }
  std::vector<std::string> heard;

 private:
  void note(std::string const& text) { heard.push_back(text); }
};
using Texts = std::vector<std::string>;

class Setter : public ModelTest {
 protected:
  Setter() { watch->notifierIs(gauge); }
  Ptr<Gauge> gauge = Zet::make<Gauge>();
  Ptr<GaugeWatch> watch = Zet::make<GaugeWatch>();
};

TEST_F(Setter, StoresBeforeItNotifies) {
  gauge->levelIs(3);
  EXPECT_EQ(watch->heard, (Texts{"level 3"}));
}

TEST_F(Setter, DoesNotNotifyAnEqualValue) {
  gauge->levelIs(0);
  gauge->levelIs(3);
  gauge->levelIs(3);
  EXPECT_EQ(watch->heard, (Texts{"level 3"}));
}

TEST_F(Setter, WithoutNotifieesOnlyStores) {
  watch->notifierIs(nullptr);
  gauge->levelIs(3);
  EXPECT_EQ(gauge->level(), 3u);
}

TEST_F(Setter, TakesBothEndsOfARange) {
  gauge->limitIs(2);
  gauge->limitIs(9);
  EXPECT_EQ(watch->heard, (Texts{"limit 2", "limit 9"}));
}

TEST_F(Setter, AValueOutOfRangeStaysStoredAndIsNotNotified) {
  for (U32 value : {1u, 10u}) {
    EXPECT_EQ(rangeError([&] { gauge->limitIs(value); }), "Gauge::limit < 2 or > 9 not allowed");
    EXPECT_EQ(gauge->limit(), value);
  }
  EXPECT_EQ(watch->heard, Texts{});
}

TEST_F(Setter, ARejectedValueGivenAgainIsAnEqualValueAndNotTested) {
  EXPECT_EQ(rangeError([&] { gauge->limitIs(10); }), "Gauge::limit < 2 or > 9 not allowed");
  EXPECT_EQ(rangeError([&] { gauge->limitIs(10); }), "no RangeException");
  EXPECT_EQ(watch->heard, Texts{});
  gauge->limitIs(5);
  EXPECT_EQ(watch->heard, (Texts{"limit 5"}));
}

TEST_F(Setter, OfACollectionNotifiesTheKeyOfANewAndOfAChangedMember) {
  gauge->markIs(7, 1);
  gauge->markIs(7, 2);
  gauge->markIs(8, 2);
  EXPECT_EQ(watch->heard, (Texts{"mark 7=1", "mark 7=2", "mark 8=2"}));
}

TEST_F(Setter, OfACollectionDoesNotNotifyAMemberWithAnEqualValue) {
  gauge->markIs(7, 1);
  gauge->markIs(7, 1);
  EXPECT_EQ(watch->heard, (Texts{"mark 7=1"}));
}

TEST_F(Setter, AnAbsentMemberIsNotOneWithTheDefault) {
  EXPECT_EQ(gauge->mark(7), 0);
  gauge->markIs(7, 0);
  EXPECT_EQ(watch->heard, (Texts{"mark 7=0"}));
  EXPECT_EQ(gauge->markCount(), 1u);
}

TEST_F(Setter, ADeleteNotifiesAfterTheMemberHasGone) {
  gauge->markIs(7, 1);
  watch->heard.clear();
  EXPECT_EQ(gauge->markDel(7), 1);
  EXPECT_EQ(watch->heard, (Texts{"mark 7=0"}));
  EXPECT_EQ(gauge->markCount(), 0u);
}

TEST_F(Setter, ADeleteOfNothingNotifiesNone) {
  EXPECT_EQ(gauge->markDel(7), 0);
  EXPECT_EQ(watch->heard, Texts{});
}

TEST_F(Setter, DelAllRemovesOneByOneEachNotified) {
  for (U32 key : {1u, 2u, 3u}) gauge->markIs(key, 1);
  watch->heard.clear();
  gauge->markDelAll();
  EXPECT_EQ(watch->heard, (Texts{"mark 2=0", "mark 1=0", "mark 3=0"}));
}

TEST_F(Setter, AReactorMayDeleteDuringDelAll) {
  class Deletes : public Gauge::NotifieeConst {
   public:
    explicit Deletes(Gauge* gauge) : gauge_(gauge) {}
    void onMark(U32 const& key) override {
      if (key == 2) gauge_->markDel(1);
    }

   private:
    Gauge* gauge_;
  };
  for (U32 key : {1u, 2u, 3u}) gauge->markIs(key, 1);
  Ptr<Deletes> deletes = Zet::make<Deletes>(gauge.ptr());
  deletes->notifierIs(gauge);
  watch->heard.clear();
  gauge->markDelAll();
  EXPECT_EQ(watch->heard, (Texts{"mark 2=0", "mark 1=0", "mark 3=0"}));
}

}  // namespace
}  // namespace test

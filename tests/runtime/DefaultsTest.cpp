// What the base classes of the runtime do where a class has no handler or name of its own.

#include <gtest/gtest.h>

#include "runtime/Entity.h"
#include "runtime/Machine.h"
#include "runtime/Reflection.h"
#include "runtime/TimerWheel.h"
#include "tests/support/TestContext.h"

namespace test {
namespace {

class DefaultsTest : public ModelTest {};

struct Nameless final : Zet::Entity {};

struct Alone final : Zet::Machine {
  Alone() : Machine(nullptr) {}
};

struct Silent final : Kiv::TimerWheel::NotifieeConst {};

TEST_F(DefaultsTest, AnEntityWithoutANameHasTheEmptyOne) {
  auto entity = Zet::make<Nameless>();
  EXPECT_EQ(entity->name(), Zet::Name());
  EXPECT_EQ(Zet::strepOfObject(entity.ptr()), "Entity('Zet::PtrInterface', '')");
}

TEST_F(DefaultsTest, AMachineWithoutReactorsPassesNothingOn) {
  auto machine = Zet::make<Alone>();
  machine->hasNotificationActiveIs(true);
  EXPECT_TRUE(machine->hasNotificationActive());
}

TEST_F(DefaultsTest, ATimerWithoutAHandlerExpiresOnce) {
  auto wheel = Zet::make<Kiv::TimerWheel>();
  auto timer = Zet::make<Silent>();
  timer->notifierIs(wheel);
  timer->timeMinIs(1);
  EXPECT_EQ(wheel->advance(1), 1u);
  EXPECT_FALSE(timer->isArmed());
  EXPECT_EQ(wheel->advance(2), 0u);
}

TEST_F(DefaultsTest, IntrospectionWithoutHandlersLeavesTheTypesAsTheyAre) {
  std::vector<Zet::ZetType const*> const before = Zet::zetTypes();
  Zet::IntrospectionReactor reactor;
  Zet::introspect(reactor);
  EXPECT_EQ(Zet::zetTypes(), before);
}

}  // namespace
}  // namespace test

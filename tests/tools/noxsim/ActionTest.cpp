// A command's action keeps small captures in place and large ones on the heap; either way it
// runs what was captured, and every capture is destroyed exactly once however it was moved.

#include "tools/noxsim/Action.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <sstream>
#include <utility>
#include <vector>

#include "tools/noxsim/Sim.h"

namespace Noxsim {
namespace {

// Counts the live copies of a capture through a shared count: the count's use count less one.
struct Tracked {
  std::shared_ptr<int> runs = std::make_shared<int>(0);
  long live() const { return runs.use_count() - 1; }
};

template <std::size_t padding>
Action countingAction(Tracked const& tracked) {
  std::array<char, padding> pad{};
  return [runs = tracked.runs, pad](Sim&) { *runs += 1 + pad[0]; };
}

TEST(ActionTest, RunsAndDestroysItsCaptureOnceWhereverItLives) {
  std::ostringstream out;
  std::ostringstream err;
  Sim sim(out, err, true);
  Tracked inPlace;
  Tracked onHeap;
  {
    // The first fits in the action, the second does not.
    std::vector<Action> actions;
    actions.push_back(countingAction<8>(inPlace));
    actions.push_back(countingAction<Action::inlineBytes>(onHeap));
    EXPECT_EQ(inPlace.live(), 1);
    EXPECT_EQ(onHeap.live(), 1);

    // Growing the vector moves both; moving one into another destroys what that one held.
    for (int i = 0; i < 20; ++i) actions.emplace_back();
    actions[5] = std::move(actions[0]);
    actions[6] = std::move(actions[1]);
    EXPECT_FALSE(actions[0]);
    EXPECT_FALSE(actions[1]);
    EXPECT_EQ(inPlace.live(), 1);
    EXPECT_EQ(onHeap.live(), 1);

    actions[5](sim);
    actions[6](sim);
    actions[6](sim);
    EXPECT_EQ(*inPlace.runs, 1);
    EXPECT_EQ(*onHeap.runs, 2);

    actions[6] = std::move(actions[5]);
    EXPECT_EQ(onHeap.live(), 0);
    EXPECT_EQ(inPlace.live(), 1);
  }
  EXPECT_EQ(inPlace.live(), 0);
  EXPECT_FALSE(Action());
}

}  // namespace
}  // namespace Noxsim

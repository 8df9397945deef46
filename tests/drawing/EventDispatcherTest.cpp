#include "korvel/BTreeEventDispatcher.h"

#include <array>
#include <atomic>
#include <functional>
#include <limits>

#include <gtest/gtest.h>
#include <boost/thread/latch.hpp>
#include <boost/thread/thread.hpp>

#include "indexes/WdbGapBTree.h"
#include "korvel/WdbAddressBTreeManager.h"

namespace Korvel {
namespace {

using Told = std::vector<std::array<long long, 3>>;  // time, address, value
using ManagerLock = boost::unique_lock<boost::recursive_mutex>;
constexpr long long Start = std::numeric_limits<long long>::min();

struct Listener : IBTreeEventListener {
    void onChanges(const std::vector<WdbTreeChange>& changes, long long latestTime) override {
        const boost::mutex::scoped_try_lock call(calling);
        EXPECT_TRUE(call.owns_lock());
        for (const WdbTreeChange& change : changes)
            told.push_back({change.time, change.tree->getAddress(), change.value});
        ++calls;
        upTo = latestTime;
        upTo.notify_all();
        if (inCall) inCall(latestTime);
    }
    void waitFor(long long time) {
        for (long long seen = upTo; seen < time; seen = upTo)
            upTo.wait(seen);
    }
    std::function<void(long long)> inCall;
    boost::mutex calling;  // one call at a time
    std::atomic<long long> upTo{Start};
    Told told;
    int calls = 0;
};

// Trees that grow while others read them, and a plain list of what they got.
struct EventDispatcher : ::testing::Test {
    WdbAddressBTreeManager manager;
    std::array<WdbScalarBTree, 3> owned{WdbScalarBTree(0), WdbScalarBTree(1), WdbScalarBTree(2)};
    const std::vector<WdbScalarBTree*> trees{&owned[0], &owned[1], &owned[2]};
    Told changes;
    BTreeEventDispatcher dispatcher{manager};

    // All trees change at a mark. The first one, -1, as an end time means that there is none.
    static bool isMark(long long time) { return (time & 3) == 3; }
    void record(long long time) {
        const ManagerLock lock(manager.getMutex());
        for (WdbScalarBTree* tree : trees) {
            if (!isMark(time) && time % (1 + tree->getAddress()) != 0) continue;
            changes.push_back({time, tree->getAddress(), static_cast<int>(changes.size() % 251)});
            tree->records().add(time, static_cast<unsigned char>(changes.back()[2]));
        }
        if (isMark(time)) dispatcher.notify(time);
    }
    Told between(long long after, long long upTo) {
        const ManagerLock lock(manager.getMutex());
        Told told = changes;
        std::erase_if(told, [&](const auto& one) { return one[0] <= after || one[0] > upTo; });
        return told;
    }
};

// Whatever listeners do to themselves and to each other, nobody misses a change or is told twice.
TEST_F(EventDispatcher, tellsEveryListenerEveryChangeOnceWhileListenersComeAndGo) {
    boost::latch gate(1);
    Listener steady, slow, failing, restless, anew;
    slow.inCall = [&](long long) { gate.wait(); };
    failing.inCall = [](long long) { throw "what is no exception class"; };
    steady.inCall = [&](long long) { const ManagerLock lock(manager.getMutex()); };
    restless.inCall = [&](long long latest) {
        dispatcher.unregisterListener(&restless);
        dispatcher.unregisterListener(&anew);
        dispatcher.registerListener(&anew, trees, anew.upTo);
        dispatcher.registerListener(&restless, {trees[0], trees[1], trees[0], trees[2]}, latest);
    };
    for (Listener* listener : {&steady, &slow, &failing, &restless})
        dispatcher.registerListener(listener, trees, Start);
    std::atomic<long long> now{-2};
    boost::thread writer([&] {
        for (; !boost::this_thread::interruption_requested() || !isMark(now);
             steady.waitFor(now - 4))
            record(++now);
    });
    for (int visit = 0; visit < 200; ++visit) {
        const long long since = visit % 4 == 0 ? Start : now.load();
        boost::latch leaving(1);
        Listener visitor;
        visitor.inCall = [&](long long) { leaving.wait(); };
        dispatcher.registerListener(&visitor, trees, since);
        if (visit % 2 == 0) visitor.waitFor(-1);
        leaving.count_down();
        dispatcher.unregisterListener(&visitor);
        EXPECT_TRUE(boost::mutex::scoped_try_lock(visitor.calling).owns_lock());
        EXPECT_EQ(visitor.told, between(since, visitor.upTo));
    }
    writer.interrupt();
    writer.join();
    for (Listener* listener : {&steady, &failing, &restless, &anew})
        listener->waitFor(now);
    gate.count_down();
    slow.waitFor(now);
    dispatcher.unregisterAll();
    EXPECT_EQ(slow.calls, 2);  // the first, and one for all that came meanwhile
    for (const Listener* listener : {&steady, &slow, &failing, &restless, &anew})
        EXPECT_TRUE(listener->told == changes) << listener->told.size();
}

// A lock held or a wait too many leaves somebody here waiting for ever.
TEST_F(EventDispatcher, unregisteringEndsWhoeverHoldsWhat) {
    boost::latch bothCalled(2);
    Listener one, other, uncalled;
    for (Listener* listener : {&one, &other}) {
        listener->inCall = [&, listener](long long) {
            bothCalled.count_down_and_wait();
            dispatcher.unregisterListener(listener == &one ? &other : &one);
        };
    }
    {
        const ManagerLock lock(manager.getMutex());
        for (long long time : {-3, -1, 1})
            record(time);
        for (Listener* listener : {&uncalled, &one, &other})
            dispatcher.registerListener(listener, trees, Start);
        dispatcher.unregisterListener(&uncalled);  // what it is to be told cannot be collected yet
    }
    bothCalled.wait();
    dispatcher.unregisterAll();
    EXPECT_EQ(one.told, between(Start, -1));
    dispatcher.registerListener(&uncalled, trees, Start);
    dispatcher.notify(-2);  // another recording begins, at an earlier time
    uncalled.waitFor(-2);
    dispatcher.unregisterListener(&uncalled);
    EXPECT_EQ(uncalled.told, between(Start, -2));  // nor was it told before
}

}  // namespace
}  // namespace Korvel

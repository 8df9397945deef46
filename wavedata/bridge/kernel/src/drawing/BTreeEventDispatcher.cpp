#include "korvel/BTreeEventDispatcher.h"

#include <algorithm>
#include <cassert>
#include <exception>
#include <limits>
#include <memory>
#include <unordered_set>
#include <utility>

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/recursive_mutex.hpp>
#include <boost/thread/thread.hpp>

#include "korvel/WdbAddressBTreeManager.h"
#include "korvel/WdbMultiBtreeIterator.h"

// What a subscription goes through, and the thread that moves it on:
//
//   Idle --dispatcher--> Collecting --dispatcher--> Ready --its own--> Calling --its own--> Idle
//                            |                        |
//                            +-- nothing new, ended --+-- ended, subscribed anew --> Idle
//
// Locks
//   1. The manager's mutex comes before m_mutex.
//   2. m_mutex is held for moments: not while changes are collected, a listener is called, or a
//      thread is joined or waited for.
//   3. A subscription is Collecting only while the dispatcher's thread holds the manager's mutex.
//      Whoever holds that mutex therefore finds none Collecting: while the dispatcher's thread
//      waits for the manager's mutex nobody waits for the dispatcher's thread.
//   4. A call holds no lock. Unregistering waits for a call, or while changes are collected.
//   5. Of calls that unregister each other's listeners in a circle, the last does not wait.
//
// What no order of locks can give: a listener that takes the manager's mutex in its call must not
// be unregistered by a thread that holds this mutex, since that thread waits for the call.

namespace Korvel {
namespace {

using Lock = boost::unique_lock<boost::mutex>;
using Changes = std::vector<WdbTreeChange>;

constexpr long long BeforeAnyTime = std::numeric_limits<long long>::min();

// Everything under the dispatcher's m_mutex; while Collecting, trees and seenTime stay as they are.
struct Subscription {
    enum class State { Idle, Collecting, Ready, Calling };

    IBTreeEventListener* listener = nullptr;
    std::vector<WdbScalarBTree*> trees;   // each once
    long long seenTime = BeforeAnyTime;   // up to where changes were handed over
    long long triedTime = BeforeAnyTime;  // the same, or up to where there was no memory for them
    State state = State::Idle;
    bool isEnded = false;  // unregistered; may be registered anew until its thread has left
    bool hasLeft = false;  // its thread does nothing more and is to be joined

    Changes changes;                         // for the call; only while Ready
    long long changesUpTo = 0;               // latest time of that call
    unsigned long long rounds = 0;           // times that it became Idle again
    const Subscription* waitsFor = nullptr;  // whose call its own call waits for
    boost::condition_variable wakeUp;        // Ready or ended
    boost::thread thread;

    bool isDue(long long latestTime) const {
        return !isEnded && state == State::Idle && triedTime < latestTime;
    }
    bool isUnderWay() const { return state == State::Collecting || state == State::Calling; }
};

using SubscriptionPtr = std::shared_ptr<Subscription>;

// A viewer that shows one signal twice is told of its changes once.
std::vector<WdbScalarBTree*> eachOnce(const std::vector<WdbScalarBTree*>& trees) {
    std::vector<WdbScalarBTree*> unique;
    std::unordered_set<const WdbScalarBTree*> known;
    for (WdbScalarBTree* tree : trees) {
        if (known.insert(tree).second) unique.push_back(tree);
    }
    return unique;
}

Changes changesBetween(const std::vector<WdbScalarBTree*>& trees, long long after, long long upTo) {
    Changes changes;
    WdbMultiBtreeIterator it(trees, after, upTo, /*resolution=*/0, upTo);
    // The last bound is checked here too, because one of its values means that there is none.
    for (; it && it.getTime() <= upTo; ++it) {
        if (it.getTime() > after)
            changes.push_back({trees[it.getTreeIndex()], it.getTime(), (*it).value});
    }
    return changes;
}

void call(IBTreeEventListener& listener, const Changes& changes, long long latestTime) {
    try {
        listener.onChanges(changes, latestTime);
    } catch (...) {
        // The viewer's fault, and its thread is ours: there is nobody to hand it to. The listener
        // goes on with the next changes.
    }
}

}  // namespace

class BTreeEventDispatcher::Impl {
public:
    explicit Impl(WdbAddressBTreeManager& manager) : m_manager(manager) {}
    ~Impl();

    void subscribe(IBTreeEventListener* listener, const std::vector<WdbScalarBTree*>& trees,
                   long long seenTime);
    void end(IBTreeEventListener* listener);
    void endAll();
    void forgetTrees();
    void notify(long long latestTime);

private:
    SubscriptionPtr find(const IBTreeEventListener* listener) const;
    SubscriptionPtr nextDue() const;
    SubscriptionPtr takeOneThatLeft();
    Subscription* ownSubscription() const;
    SubscriptionPtr start(IBTreeEventListener* listener);
    void endWithoutWaiting(Subscription& subscription);
    void waitForCall(Lock& lock, const SubscriptionPtr& subscription);
    void settle(Subscription& subscription);
    void dispatch();
    void collectNext();
    void serve(Subscription& subscription);

    WdbAddressBTreeManager& m_manager;

    boost::mutex m_mutex;                          // guards everything below
    std::vector<SubscriptionPtr> m_subscriptions;  // until their threads are joined
    long long m_latestTime = BeforeAnyTime;
    bool m_isEnding = false;
    boost::condition_variable m_workCame;  // for the dispatcher's thread
    boost::condition_variable m_moved;     // a subscription is not Collecting or Calling any more
    boost::thread m_thread;                // the dispatcher's; runs from the first listener on
};

// --- What other threads ask for. ---

BTreeEventDispatcher::Impl::~Impl() {
    {
        const Lock lock(m_mutex);
        m_isEnding = true;  // a listener that registers anew in its last call comes too late
    }
    endAll();
    {
        const Lock lock(m_mutex);
        m_workCame.notify_one();
    }
    if (m_thread.joinable()) m_thread.join();
}

void BTreeEventDispatcher::Impl::subscribe(IBTreeEventListener* listener,
                                           const std::vector<WdbScalarBTree*>& trees,
                                           long long seenTime) {
    assert(listener);  // a caller without one would wait for changes for ever
    const boost::this_thread::disable_interruption whole;  // the wait below would be left early
    std::vector<WdbScalarBTree*> unique = eachOnce(trees);
    Lock lock(m_mutex);
    if (m_isEnding) return;
    SubscriptionPtr subscription = find(listener);
    while (subscription && subscription->state == Subscription::State::Collecting) {
        m_moved.wait(lock);
        subscription = find(listener);
    }
    // One that ended within its call and begins anew there keeps its thread: a second thread would
    // call the listener while the first is still in it.
    if (!subscription) subscription = start(listener);
    if (subscription->state == Subscription::State::Ready) settle(*subscription);
    subscription->trees.swap(unique);
    subscription->seenTime = subscription->triedTime = seenTime;
    subscription->isEnded = false;
    m_workCame.notify_one();
}

void BTreeEventDispatcher::Impl::end(IBTreeEventListener* listener) {
    Lock lock(m_mutex);
    const SubscriptionPtr subscription = find(listener);
    if (!subscription) return;
    endWithoutWaiting(*subscription);
    waitForCall(lock, subscription);
}

void BTreeEventDispatcher::Impl::endAll() {
    Lock lock(m_mutex);
    const std::vector<SubscriptionPtr> all = m_subscriptions;
    for (const SubscriptionPtr& subscription : all)
        endWithoutWaiting(*subscription);
    // What comes next is another recording, whose times begin anew.
    m_latestTime = BeforeAnyTime;
    for (const SubscriptionPtr& subscription : all)
        waitForCall(lock, subscription);
}

// The caller holds the manager's mutex, so that nobody is reading the trees.
void BTreeEventDispatcher::Impl::forgetTrees() {
    const Lock lock(m_mutex);
    for (const SubscriptionPtr& subscription : m_subscriptions) {
        subscription->trees.clear();
        if (subscription->state == Subscription::State::Ready) settle(*subscription);
    }
    m_latestTime = BeforeAnyTime;
}

void BTreeEventDispatcher::Impl::notify(long long latestTime) {
    const Lock lock(m_mutex);
    m_latestTime = std::max(m_latestTime, latestTime);
    m_workCame.notify_one();
}

// --- With m_mutex held. ---

SubscriptionPtr BTreeEventDispatcher::Impl::find(const IBTreeEventListener* listener) const {
    for (const SubscriptionPtr& subscription : m_subscriptions) {
        if (subscription->listener == listener && !subscription->hasLeft) return subscription;
    }
    return nullptr;
}

// The one that is furthest behind, so that none waits for ever for those before it.
SubscriptionPtr BTreeEventDispatcher::Impl::nextDue() const {
    SubscriptionPtr next;
    for (const SubscriptionPtr& subscription : m_subscriptions) {
        if (subscription->isDue(m_latestTime) &&
            (!next || subscription->triedTime < next->triedTime))
            next = subscription;
    }
    return next;
}

SubscriptionPtr BTreeEventDispatcher::Impl::takeOneThatLeft() {
    const auto place =
        std::find_if(m_subscriptions.begin(), m_subscriptions.end(),
                     [](const SubscriptionPtr& subscription) { return subscription->hasLeft; });
    if (place == m_subscriptions.end()) return nullptr;
    const SubscriptionPtr subscription = *place;
    m_subscriptions.erase(place);
    return subscription;
}

// The one whose call runs in this thread, or null.
Subscription* BTreeEventDispatcher::Impl::ownSubscription() const {
    const boost::thread::id thisThread = boost::this_thread::get_id();
    for (const SubscriptionPtr& subscription : m_subscriptions) {
        if (subscription->thread.get_id() == thisThread) return subscription.get();
    }
    return nullptr;
}

// Leaves everything as it was when the system has no thread to give.
SubscriptionPtr BTreeEventDispatcher::Impl::start(IBTreeEventListener* listener) {
    if (!m_thread.joinable()) m_thread = boost::thread([this] { dispatch(); });
    m_subscriptions.reserve(m_subscriptions.size() + 1);
    const auto subscription = std::make_shared<Subscription>();
    subscription->listener = listener;
    Subscription& served = *subscription;  // listed until its thread is joined
    subscription->thread = boost::thread([this, &served] { serve(served); });
    m_subscriptions.push_back(subscription);
    return subscription;
}

void BTreeEventDispatcher::Impl::endWithoutWaiting(Subscription& subscription) {
    subscription.isEnded = true;
    if (subscription.state == Subscription::State::Ready) settle(subscription);
    subscription.wakeUp.notify_one();
}

void BTreeEventDispatcher::Impl::waitForCall(Lock& lock, const SubscriptionPtr& subscription) {
    Subscription* own = ownSubscription();
    for (const Subscription* link = subscription.get(); own && link; link = link->waitsFor) {
        if (link == own) return;
    }
    // Whoever interrupted the wait would take the listener away under its call.
    const boost::this_thread::disable_interruption whole;
    if (own) own->waitsFor = subscription.get();
    // A listener that is registered anew meanwhile may be under way again when we look.
    const unsigned long long round = subscription->rounds;
    m_moved.wait(lock,
                 [&] { return !subscription->isUnderWay() || subscription->rounds != round; });
    if (own) own->waitsFor = nullptr;
}

void BTreeEventDispatcher::Impl::settle(Subscription& subscription) {
    subscription.state = Subscription::State::Idle;
    subscription.changes = {};
    ++subscription.rounds;
    subscription.wakeUp.notify_one();
    m_moved.notify_all();
    m_workCame.notify_one();
}

// --- The dispatcher's thread. ---

void BTreeEventDispatcher::Impl::dispatch() {
    Lock lock(m_mutex);
    while (!m_isEnding || !m_subscriptions.empty()) {
        if (const SubscriptionPtr left = takeOneThatLeft()) {
            lock.unlock();
            left->thread.join();
            lock.lock();
        } else if (nextDue()) {
            lock.unlock();
            collectNext();
            lock.lock();
        } else {
            m_workCame.wait(lock);
        }
    }
}

void BTreeEventDispatcher::Impl::collectNext() {
    const boost::unique_lock<boost::recursive_mutex> treesLock(m_manager.getMutex());
    Lock lock(m_mutex);
    const SubscriptionPtr next = nextDue();
    if (!next) return;
    next->state = Subscription::State::Collecting;
    const long long upTo = next->triedTime = m_latestTime;
    lock.unlock();

    Changes changes;
    bool isComplete = true;
    try {
        changes = changesBetween(next->trees, next->seenTime, upTo);
    } catch (const std::exception&) {
        isComplete = false;  // no memory: once more at the next time mark
    }

    lock.lock();
    if (isComplete) next->seenTime = upTo;
    if (next->isEnded || changes.empty()) {
        settle(*next);
        return;
    }
    next->changes.swap(changes);
    next->changesUpTo = upTo;
    next->state = Subscription::State::Ready;
    next->wakeUp.notify_one();
    m_moved.notify_all();
}

// --- A listener's thread. ---

void BTreeEventDispatcher::Impl::serve(Subscription& subscription) {
    using State = Subscription::State;
    Lock lock(m_mutex);
    for (;;) {
        subscription.wakeUp.wait(lock, [&] {
            return subscription.state == State::Ready ||
                   (subscription.isEnded && subscription.state == State::Idle);
        });
        if (subscription.state == State::Idle) break;
        subscription.state = State::Calling;
        Changes changes = std::move(subscription.changes);
        lock.unlock();
        call(*subscription.listener, changes, subscription.changesUpTo);
        changes = {};
        lock.lock();
        settle(subscription);
    }
    subscription.hasLeft = true;
    m_workCame.notify_one();
}

// --- The exported face. ---

BTreeEventDispatcher::BTreeEventDispatcher(WdbAddressBTreeManager& manager)
    : m_impl(std::make_unique<Impl>(manager)) {}

BTreeEventDispatcher::~BTreeEventDispatcher() = default;

void BTreeEventDispatcher::registerListener(IBTreeEventListener* listener,
                                            const std::vector<WdbScalarBTree*>& trees,
                                            long long seenTime) {
    m_impl->subscribe(listener, trees, seenTime);
}

void BTreeEventDispatcher::unregisterListener(IBTreeEventListener* listener) {
    m_impl->end(listener);
}

void BTreeEventDispatcher::notify(long long latestTime) {
    m_impl->notify(latestTime);
}

void BTreeEventDispatcher::unregisterAll() {
    m_impl->endAll();
}

void BTreeEventDispatcher::forgetTrees() {
    m_impl->forgetTrees();
}

}  // namespace Korvel

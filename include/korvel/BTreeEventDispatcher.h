#pragma once

#include <memory>
#include <vector>

#include "korvel/WdbScalarBTree.h"

namespace Korvel {

class WdbAddressBTreeManager;

/// One change, as a listener is told of it.
struct WdbTreeChange {
    WdbScalarBTree* tree = nullptr;
    long long time = 0;
    unsigned char value = 0;
};

/// Is told of changes as they become final.
class IBTreeEventListener {
public:
    virtual ~IBTreeEventListener() = default;

    /// The changes of the subscribed trees after what was told before, up to and with
    /// @p latestTime, in time order; not empty. Called by a thread of the dispatcher, which holds
    /// no lock, one call at a time for one listener.
    virtual void onChanges(const std::vector<WdbTreeChange>& changes, long long latestTime) = 0;
};

/// Tells listeners of the changes of the trees that they subscribed to, after each time mark.
///
/// A slow listener delays only itself: it is told of everything since, in one call, when it is
/// back. Any thread may call. Trees that a reset took away are no longer listened to.
class __attribute__((visibility("default"))) BTreeEventDispatcher {
public:
    explicit BTreeEventDispatcher(WdbAddressBTreeManager& manager);

    /// Waits for calls in progress; nobody is called afterwards.
    ~BTreeEventDispatcher();
    BTreeEventDispatcher(const BTreeEventDispatcher&) = delete;
    BTreeEventDispatcher& operator=(const BTreeEventDispatcher&) = delete;

    /// Subscribes a listener, which is not owned, to @p trees. It is told of changes after
    /// @p seenTime: 0 leaves out those at time 0, -1 is for a viewer that wants all. A listener
    /// that is registered already gets the new trees instead.
    void registerListener(IBTreeEventListener* listener, const std::vector<WdbScalarBTree*>& trees,
                          long long seenTime);

    /// Ends a subscription. Waits for a call in progress, unless called from within it: afterwards
    /// the listener is not called any more. Where a listener takes the manager's mutex in its call,
    /// the caller must not hold it.
    void unregisterListener(IBTreeEventListener* listener);

    /// Everything up to @p latestTime is in the trees.
    void notify(long long latestTime);

    /// Ends all subscriptions, as unregisterListener() does each. The trees are about to go.
    void unregisterAll();

    /// Whoever is subscribed all the same listens to nothing from here on. The caller holds the
    /// manager's mutex.
    void forgetTrees();

private:
    class __attribute__((visibility("hidden"))) Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace Korvel

#include "events/WdbMultipleBucketBtreeEventSource.h"

#include <boost/make_shared.hpp>

#include "events/WdbMultipleBucketBtreeDatabase.h"

namespace Korvel {

long long WdbMultipleBucketBtreeEventSource::getLatestTime() const {
    return m_pDatabase->getLatestTime();
}

WdbIEventSource::IteratorPtr WdbMultipleBucketBtreeEventSource::find(long long, long long,
                                                                     long long, long long) const {
    return boost::make_shared<InvalidIterator>();
}

WdbIEventSource::IteratorPtr WdbMultipleBucketBtreeEventSource::findEventBlock(
    long long address, long long time) const {
    const WdbEventBtree* tree = m_pDatabase->loadTreeOf(address);
    if (tree == nullptr) return boost::make_shared<WdbEventBtree::ValueIterator>(address);
    return boost::make_shared<WdbEventBtree::ValueIterator>(
        tree->getValueBlockIterator(address, time));
}

}  // namespace Korvel

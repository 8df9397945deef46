#include "korvel/WdbEventReaderFactory.h"

#include "readers/WdbLiveReader.h"
#include "readers/WdbStaticReader.h"

namespace Korvel {

WdbEventReaderFactory& WdbEventReaderFactory::getInstance() {
    static WdbEventReaderFactory instance;
    return instance;
}

WdbIEventReader* WdbEventReaderFactory::create(ReaderType type) {
    switch (type) {
        case STATIC_READER:
            return new WdbStaticReader;
        case LIVE_READER:
            return new WdbLiveReader;
        default:
            return nullptr;
    }
}

}  // namespace Korvel

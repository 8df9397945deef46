#include "korvel/WdbEventReaderFactory.h"

#include "readers/WdbStaticReader.h"

namespace Korvel {

WdbEventReaderFactory& WdbEventReaderFactory::getInstance() {
    static WdbEventReaderFactory instance;
    return instance;
}

WdbIEventReader* WdbEventReaderFactory::create(ReaderType type) {
    return type == STATIC_READER ? new WdbStaticReader : nullptr;
}

}  // namespace Korvel

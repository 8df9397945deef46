#pragma once

namespace Korvel {

/// Something that can make what it has stored so far findable in its file, so that a killed process
/// loses no more than its unfinished blocks.
///
/// A checkpoint only rewrites in place what closing would rewrite too: it stores no block early and
/// changes no byte of the file that is finally left.
class WdbICheckpoint {
public:
    virtual ~WdbICheckpoint() = default;

    virtual void checkpoint() = 0;
};

}  // namespace Korvel

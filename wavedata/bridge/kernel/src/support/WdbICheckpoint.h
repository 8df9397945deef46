#pragma once

namespace Korvel {

/// Something that can make what it has stored so far findable in its file, so that a killed process
/// loses no more than its unfinished blocks.
///
/// A checkpoint stores no unfinished block. It rewrites in place what closing would rewrite too,
/// and changes nothing that the finished file answers.
class WdbICheckpoint {
public:
    virtual ~WdbICheckpoint() = default;

    virtual void checkpoint() = 0;
};

}  // namespace Korvel

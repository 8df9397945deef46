#pragma once

#include <string>

namespace Korvel {

/// What a simulator kernel records through.
///
/// A kernel sets address size, bucket division and base offset, calls open(), fetches the trace
/// functions once, calls them for every value change and markCurrentTime() whenever time advances,
/// and ends with close(). The virtual operations keep their order for ever: a kernel may know only
/// their slots.
///
/// Times are signed 64-bit counts of the simulator's base unit and never fall. An address is the
/// index of one value byte in the kernel's data space.
///
/// One kernel thread at a time. The trace functions find their writer through a class-wide
/// pointer, so the writer constructed last is the one that records, one of each class a process.
/// Trace calls and time marks on a writer that is not open do nothing.
class IWdbWriter {
public:
    /// Only the live writer looks at the mode: it accepts LiveMode and ends the process otherwise.
    enum WriterMode : int { DefaultMode = 0, LiveMode = 1, LegacyMode = 2 };

    /// How a recording on disk keeps its events. Readers answer alike for all of them, as far as
    /// addresses lie in the address size: of others a MultipleBucketBtree may refuse one with
    /// std::out_of_range.
    enum DatabaseType : int {
        SingleBucket = 1000,         ///< one list of blocks; for a few addresses
        MultipleBucket = 1001,       ///< one list of blocks a bucket of addresses
        MultipleBucketBtree = 1002,  ///< one tree over the blocks a bucket, so that the value at a
                                     ///< time is found without reading the blocks before it
    };

    /// Records @p size value bytes from @p value at the address of @p storage.
    /// @p storage points into the kernel's data space; the base offset is subtracted from it.
    using TraceVhdlFunc = void (*)(long long time, unsigned int ignored, unsigned int size,
                                   unsigned char* storage, unsigned char* value);

    /// Not a recording path. Kernels use TraceVhdlFunc for scalars too.
    using TraceVhdlScalarFunc = void (*)(long long time, unsigned int, unsigned int,
                                         const unsigned char* value);

    /// Records the bits [@p firstBit, @p endBit) of a Verilog value.
    ///
    /// A value is an array of pairs of 32-bit words, one pair for 32 bits: the value word, then the
    /// second-plane word (0: 00, 1: 10, Z: 01, X: 11, value bit first). @p storage holds the value
    /// before the change, @p bits the new bits from its own bit 0. The whole pairs that cover the
    /// range are recorded, 8 bytes a pair. Nothing is recorded when @p endBit <= @p firstBit.
    using TraceVlogFunc = void (*)(long long time, unsigned int, unsigned int,
                                   unsigned char* storage, unsigned char* bits,
                                   unsigned int firstBit, unsigned int endBit);

    /// As TraceVlogFunc, with the address given and the range [@p firstBit, @p firstBit + @p
    /// bitCount). Advances the latest time as well when the recording goes to a file.
    using TraceScObjectFunc = void (*)(long long time, unsigned long long address,
                                       unsigned char* current, unsigned char* bits,
                                       unsigned int firstBit, unsigned int bitCount);

    /// Records @p size bytes at @p address + @p offset. Advances the latest time as well when the
    /// recording goes to a file.
    using TraceScVirtualObjectFunc = void (*)(long long time, unsigned long long address,
                                              unsigned char* value, unsigned int offset,
                                              unsigned int size);

    virtual ~IWdbWriter() = default;

    /// Starts a recording; one that is still open is closed first.
    ///
    /// @param designPath  Path inside the snapshot's directory; what follows its last "/" does not
    ///                    count. The compiler's "torq.dbg" and "torq.rtti" are looked for there.
    /// @param fileName    The recording; empty means "torq.wdb".
    /// @param index       Not used by the writers of this library.
    /// Throws Veld::OpenException when the file cannot be created or a setting makes no sense; the
    /// writer is then closed.
    virtual void open(WriterMode mode, const std::string& designPath, const std::string& fileName,
                      int index) = 0;

    virtual TraceVhdlFunc getTraceVhdlFunc() = 0;
    virtual TraceVhdlScalarFunc getTraceVhdlFuncScalar() = 0;
    virtual TraceVlogFunc getTraceVlogFunc() = 0;
    virtual TraceScObjectFunc getTraceScObjectFunc() = 0;
    virtual TraceScVirtualObjectFunc getTraceScVirtualObjectFunc() = 0;

    /// Stores a string and returns its id, counted from 1. A string of 1,011 bytes or more is not
    /// stored. Returns -1 when nothing was stored, also when no recording is open.
    virtual long long addString(const std::string& text) = 0;

    /// Finishes the recording. Throws std::ios_base::failure when its last bytes cannot be written.
    virtual void close() = 0;

    /// The simulator starts again from time 0. Only live transport has something to do.
    virtual void restart() = 0;

    virtual void setMaxTraceableSize(unsigned int size) = 0;

    /// Simulation time has reached @p time; all changes up to it have been traced.
    virtual void markCurrentTime(long long time) = 0;

    /// What is subtracted from storage pointers to form addresses. Read at every trace call.
    virtual void setBaseDPOffset(long long offset) = 0;

    /// Name of the writing application, of which the file keeps 24 bytes.
    virtual void setApplication(const std::string& name) = 0;

    /// Number of addresses that changes can have. Read by open().
    virtual void setAddressSize(long long size) = 0;

    /// Addresses a bucket, 2048 unless set; never 0. Read by open().
    virtual void setBucketDivision(unsigned int addressesPerBucket) = 0;

    /// Whether a full block drops writes that a later write of the same time, address and length
    /// supersedes. On unless cleared; a MultipleBucketBtree always does.
    virtual void setFilterRepeatedValue(bool filter) = 0;

    /// A DatabaseType, MultipleBucket unless set. Read by open() of the writer of a recording on
    /// disk, which refuses other numbers, and the tree with another bucket division than 2048.
    virtual void setDatabaseType(int type) = 0;
};

}  // namespace Korvel

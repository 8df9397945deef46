#pragma once

namespace Korvel {

class WdbLivePacket;
struct WdbLivePacketContainer;

/// A ring of records between one producer and one consumer, over memory that both share.
///
///   offset  size   what
///        0     4   write offset, the producer's
///        4     4   read offset, the consumer's
///        8   C     data; a record may go on at their start, byte by byte
///
/// Each side publishes its offset only when its copy is complete, so that the other side never sees
/// part of a record, and against the offset that it started from, so that what empties the ring in
/// the meantime is not undone. What the other process writes into the memory is never trusted: no
/// offset leads out of it.
///
/// Owns nothing.
class WdbCircularBuffer {
public:
    /// @param region  Of @p size bytes, the offsets included; null for a ring that takes and gives
    ///                nothing.
    /// @param create  Empties the ring.
    WdbCircularBuffer(char* region, unsigned int size, bool create);

    unsigned int getCapacity() const { return m_capacity; }

    /// Both offsets, and the bytes that wait between them. False while there are none.
    bool canRead(unsigned int& read, unsigned int& write, unsigned int& available) const;

    /// Whether a record of @p n bytes may be written now, and where the write offset is and would
    /// be then. For a record that can ever fit that is so exactly when, with it, at least one byte
    /// stays free.
    bool canWrite(unsigned int& write, unsigned int& newWrite, unsigned int n) const;

    /// Takes everything that waits. False where that is nothing.
    /// @param dest  Of getCapacity() bytes.
    bool getPackets(void* dest, unsigned int& available);

    /// Adds a record. False while there is no room for it, and for one that can never fit.
    bool putPacket(const WdbLivePacketContainer& container);
    bool putPacket(const WdbLivePacket& packet);

    /// The same with a length word and the @p n bytes that follow it.
    bool putPayload(const void* bytes, unsigned int n);

    /// Whether a record of @p n bytes can ever fit.
    bool isRecordSize(unsigned long long n) const { return n < m_capacity / 2; }

    /// Empties the ring, and begins at its start. Not while the consumer may be in the middle of
    /// its first batch, the one from offset 0: it could not tell the ring that it began with from
    /// the one that follows.
    void clear();

    /// Empties the ring where it stands; the producer's way while there is a consumer.
    void forget();

    /// A copy of the memory of such a ring begins here: what waits there waits here.
    /// @param memory  As large as the ring's. Nobody changes it.
    void takeOver(const char* memory);

private:
    template <typename Copy>
    bool put(unsigned long long n, Copy&& copy);
    static void copyValue(char* to, const unsigned char* value, unsigned int size);
    void copyIn(unsigned int offset, const void* bytes, unsigned int n);
    void repairOffsets();
    bool areInRing(unsigned int read, unsigned int write) const;
    bool isEmptiedSince(unsigned int read, unsigned int write) const;

    char* m_data;             // null: no memory
    unsigned int m_capacity;  // bytes of data
    unsigned int* m_pWrite;
    unsigned int* m_pRead;
};

}  // namespace Korvel

#include "transport/WdbLivePacket.h"

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "transport/WdbLivePacketContainer.h"

namespace Korvel {
namespace {

// Sizes of the parts; checks that they follow each other and hold the value.
std::vector<unsigned int> split(unsigned int size, unsigned int limit) {
    std::vector<unsigned char> value(size);
    std::list<WdbLivePacketContainer> parts;
    WdbLivePacketContainer{5, size, 1000, value.data()}.splitContainer(parts, limit);
    std::vector<unsigned int> sizes;
    unsigned long long done = 0;
    for (const WdbLivePacketContainer& part : parts) {
        EXPECT_EQ(part.m_time, 5);
        EXPECT_EQ(part.m_address, 1000 + done);
        EXPECT_EQ(part.m_value, value.data() + done);
        sizes.push_back(part.m_valueSize);
        done += part.m_valueSize;
    }
    EXPECT_TRUE(parts.empty() || done == size) << size << " by " << limit;
    return sizes;
}

TEST(LivePacketContainer, isCutIntoPartsOfHalfTheLimit) {
    using Sizes = std::vector<unsigned int>;
    EXPECT_EQ(split(274, 299), Sizes());
    EXPECT_EQ(split(275, 299), (Sizes{137, 138}));  // a record of just the limit
    EXPECT_EQ(split(276, 299), (Sizes{69, 69, 69, 69}));
    EXPECT_EQ(split(1000, 299), (Sizes{125, 125, 125, 125, 125, 125, 125, 125}));
    EXPECT_EQ(split(0, 24), Sizes{});  // no value byte fits, and there is none
    EXPECT_EQ(split(1, 25), (Sizes{0, 1}));
    EXPECT_EQ(split(3, 24), (Sizes{1, 1, 1}));
    EXPECT_EQ(split(2, 0), (Sizes{1, 1}));
    EXPECT_EQ(split(2, 25), (Sizes{1, 1}));  // halves would be empty for ever
    for (const unsigned int limit : {48U, 60U, 299U, 1000U}) {
        for (const unsigned int size : {299U, 1023U, 10'000U, 100'003U}) {
            for (const unsigned int part : split(size, limit))
                ASSERT_LE(part + WdbLivePacketContainer::RecordOverhead, limit);
        }
    }
}

TEST(LivePacket, showsItsBytes) {
    const std::unique_ptr<WdbLivePacket> packet(new (3) WdbLivePacket(3));
    std::ostringstream out;
    packet->putData("\x01\xff\x7f");
    packet->printPacket(out);
    out << 10;
    EXPECT_EQ(out.str(), "Bytes 7 31 ff 7f 10");
    out.str("");
    packet->populatePacket('\x1f', out, true);
    EXPECT_EQ(out.str(), "Bytes 7 31f 20 21 ");
}

}  // namespace
}  // namespace Korvel

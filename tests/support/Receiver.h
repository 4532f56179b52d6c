// The receiving end of what a test sends: on this machine alone.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <vector>

#include "platform/Socket.h"
#include "support/TestThreads.h"

namespace kest {

constexpr std::uint32_t kThisMachine = 0x0100007F;  // 127.0.0.1

/// A port of its own on 127.0.0.1.
class CReceiver : public CDatagramSocket {
public:
    CReceiver() { EXPECT_TRUE(StartSockets() && Open() == 0 && Bind({kThisMachine, 0}) == 0); }
    /// The next datagrams are these bytes, so many in each.
    void Expect(std::span<const std::uint8_t> bytes, std::size_t nDatagram = 1024) {
        for (; !bytes.empty(); bytes = bytes.subspan(nDatagram)) {
            std::vector<std::uint8_t> datagram(65536);
            datagram.resize(static_cast<std::size_t>(std::max(0, Receive(datagram, kTooLongMs))));
            ASSERT_TRUE(std::ranges::equal(datagram, bytes.first(nDatagram))) << datagram.size();
        }
    }
    bool IsIdle() {
        std::vector<std::uint8_t> datagram(65536);
        return Receive(datagram, 10) < 0;
    }
};

}  // namespace kest

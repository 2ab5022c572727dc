#include "support/event_bytes.h"

#include <gtest/gtest.h>
#include <string.h>

#include "support/bytes.h"

std::vector<uint8_t> bytesAt(size_t size, const HexSlices &slices) {
    std::vector<uint8_t> out(size);
    for (const auto &s : slices) {
        std::vector<uint8_t> b = bytes(s.second);
        EXPECT_LE(s.first + b.size(), size) << "slice @" << s.first;
        if (s.first + b.size() <= size) memcpy(out.data() + s.first, b.data(), b.size());
    }
    return out;
}

std::vector<vopa_host::Delivery> deliveriesTo(vopa_host::DeliveryKind kind, int32_t to,
                                              uint64_t after) {
    std::vector<vopa_host::Delivery> out;
    for (const vopa_host::Delivery &d : vopa_host::deliveries()) {
        if (d.seq > after && d.kind == kind && d.to == to) out.push_back(d);
    }
    return out;
}

uint64_t lastDeliverySeq() {
    std::vector<vopa_host::Delivery> all = vopa_host::deliveries();
    return all.empty() ? 0 : all.back().seq;
}

void expectEvents(const std::vector<vopa_host::Delivery> &got,
                  const std::vector<ExpectedEvent> &want) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); i++) {
        EXPECT_EQ(got[i].id, want[i].id) << "event " << i;
        ASSERT_EQ(got[i].data.size(), want[i].size) << "event " << i;
        for (const auto &s : want[i].slices) {
            size_t n = bytes(s.second).size();
            ASSERT_LE(s.first + n, got[i].data.size()) << "event " << i << " @" << s.first;
            EXPECT_EQ(hex(got[i].data.data() + s.first, n), s.second)
                << "event " << i << " @" << s.first;
        }
    }
}

// Data-call entries of each version family, decoded field by field, and the address texts.
#include "codec/data_call_record.h"

#include <binder/Parcel.h>
#include <gtest/gtest.h>
#include <string.h>

#include <memory>
#include <string>

#include "support/bytes.h"
#include "support/log_capture.h"

namespace {

// Builds a Parcel from literal values, as the daemon would write it.
struct Wire {
    android::Parcel p;
    Wire &i(int32_t v) {
        p.writeInt32(v);
        return *this;
    }
    Wire &s(const std::u16string &t) {
        p.writeString16(t.data(), t.size());
        return *this;
    }
    // A bearer without QoS, TFT or P-CSCF: seven fields, then the three presence flags.
    Wire &bearer(int32_t cid) { return i(1).i(2).i(cid).i(1).i(0).i(5).i(0).i(0).i(0).i(0); }
    android::Parcel &rewound() {
        p.setDataPosition(0);
        return p;
    }
};

const char *kIpv6Dotted = "32.1.13.184.0.0.0.0.0.0.0.0.0.0.0.1";
const char16_t *kIpv6Dotted16 = u"32.1.13.184.0.0.0.0.0.0.0.0.0.0.0.1";
const char *kIpv6Bytes = "20 01 0d b8 00 00 00 00 00 00 00 00 00 00 00 01";

Wire &entryHead(Wire &w, const std::u16string &dnses) {
    return w.i(0)
        .i(-1)
        .i(3)
        .i(2)
        .s(u"IPV4V6")
        .s(u"rmnet_data0")
        .s(u"10.1.2.3/24 " + std::u16string(kIpv6Dotted16))
        .s(dnses)
        .s(u"fe80::1 10.1.2.1");
}

std::unique_ptr<ZOK_Data_Call_Response_v11> filledRecord() {
    auto d = std::make_unique<ZOK_Data_Call_Response_v11>();
    memset(d.get(), 0x5A, sizeof(*d));
    return d;
}

TEST(DataCallRecordTest, Version6StopsAfterGateways) {
    Wire w;
    entryHead(w, u"8.8.8.8 2001:db8::53").i(1400);
    auto d = filledRecord();
    LogCapture logs;
    readDataCallFromParcel(w.rewound(), d.get(), 6, 1);
    EXPECT_EQ(w.p.dataPosition(), w.p.dataSize() - 4);  // mtu left unread
    EXPECT_EQ(d->mtuSize, 0x5A5A5A5A);
    EXPECT_EQ(d->cid, 3);
    EXPECT_EQ(d->type, 2);
    EXPECT_STREQ(d->ifname, "rmnet_data0");
    EXPECT_EQ(hex(&d->ipv4Address, 4), "0a 01 02 03");
    EXPECT_EQ(hex(d->ipv6Address, 16), kIpv6Bytes);
    EXPECT_EQ(d->ipv4DnsNum, 1u);
    EXPECT_EQ(hex(&d->ipv4Dns[0], 4), "08 08 08 08");
    EXPECT_EQ(d->ipv6DnsNum, 1u);
    EXPECT_EQ(hex(d->ipv6Dns[0], 16), "20 01 0d b8 00 00 00 00 00 00 00 00 00 00 00 53");
    EXPECT_EQ(hex(d->ipv6Gateway, 16), "fe 80 00 00 00 00 00 00 00 00 00 00 00 00 00 01");
    EXPECT_EQ(d->ipv4Gateway, 0x5A5A5A5Au);  // only the first gateway counts
    EXPECT_FALSE(logs.containsMessage(
        "read from rild, status = 0, suggestedRetryTime = -1, cid = 3, active = 2"));
}

TEST(DataCallRecordTest, Version11AddsPcscfAndMtuAndCapsDnsServers) {
    Wire w;
    entryHead(w, u"1.1.1.1 2.2.2.2 3.3.3.3").s(u"10.0.0.9").i(1400).i(77);
    auto d = filledRecord();
    LogCapture logs;
    readDataCallFromParcel(w.rewound(), d.get(), 11, 1);
    EXPECT_EQ(w.p.dataPosition(), w.p.dataSize() - 4);  // no eran_type below 1001
    EXPECT_EQ(d->mtuSize, 1400);
    EXPECT_EQ(d->ipv4DnsNum, 2u);
    EXPECT_EQ(hex(d->ipv4Dns, 8), "01 01 01 01 02 02 02 02");
    EXPECT_EQ(d->ipv6DnsNum, 0u);
    EXPECT_TRUE(logs.containsMessage("ipv4 dns[2] = 3.3.3.3"));
    EXPECT_EQ(d->concatenateNum, 0x5A5A5A5A);
    EXPECT_TRUE(logs.containsMessage(
        "read from rild, status = 0, suggestedRetryTime = -1, cid = 3, active = 2"));
}

TEST(DataCallRecordTest, ExtendedVersionReadsBearersAndOnlyDefaultDdcId) {
    Wire w;
    entryHead(w, u"").s(u"").i(1500).i(2).bearer(11).bearer(12).i(9).bearer(13).i(3);
    auto d = filledRecord();
    d->concatenate[0].ddcId = 41;
    readDataCallFromParcel(w.rewound(), d.get(), 1001, 1);
    EXPECT_EQ(w.p.dataPosition(), w.p.dataSize());
    EXPECT_EQ(d->ipv6DnsNum, 1u);  // the empty text is one token, taken the IPv6 way
    EXPECT_EQ(d->concatenateNum, 2);
    EXPECT_EQ(d->concatenate[0].ddcId, 41);
    EXPECT_EQ(d->concatenate[0].cid, 11);
    EXPECT_EQ(d->concatenate[1].cid, 12);
    EXPECT_EQ(d->defaultBearerValid, 1);
    EXPECT_EQ(d->defaultBearer.ddcId, 9);
    EXPECT_EQ(d->defaultBearer.cid, 13);
    EXPECT_EQ(d->eran_type, 3);
}

TEST(DataCallRecordTest, SurplusBearersAreConsumedNotStored) {
    Wire w;
    entryHead(w, u"").s(u"").i(1500).i(12);
    for (int cid = 100; cid < 112; cid++) w.bearer(cid);
    w.i(9).bearer(13).i(3);
    auto d = filledRecord();
    readDataCallFromParcel(w.rewound(), d.get(), 1001, 1);
    EXPECT_EQ(d->concatenateNum, 11);
    EXPECT_EQ(d->concatenate[10].cid, 110);
    EXPECT_EQ(d->defaultBearer.ddcId, 9);
    EXPECT_EQ(d->defaultBearer.cid, 13);
    EXPECT_EQ(d->eran_type, 3);

    Wire hostile;
    entryHead(hostile, u"").s(u"").i(1500).i(1000000).bearer(7);
    readDataCallFromParcel(hostile.rewound(), d.get(), 1001, 1);
    EXPECT_EQ(d->concatenateNum, 11);
    EXPECT_EQ(d->concatenate[0].cid, 7);
}

TEST(DataCallRecordTest, AddressTexts) {
    const struct {
        const char *type;
        std::string addresses;
        int expectedType;
        const char *ipv4;  // hex; 5a bytes are untouched
        const char *ipv6;
        const char *error;
    } cases[] = {
        {"IP", "192.168.1.7/24", 0, "c0 a8 01 07", nullptr, nullptr},
        {"IPV6", kIpv6Dotted, 1, nullptr, kIpv6Bytes, nullptr},
        {"IPV6", "2001:db8::1", 1, nullptr, kIpv6Bytes, nullptr},
        {"IPV4V6", std::string("10.1.2.3 ") + kIpv6Dotted, 2, "0a 01 02 03", kIpv6Bytes, nullptr},
        {"IPV4V6", "10.1.2.3", 2, nullptr, nullptr, "invalid address (10.1.2.3)"},
        {"ip", "10.1.2.3", -1, nullptr, nullptr, "invalid ip_type = ip, type = -1"},
        {"IP", "10.1.2.", 0, nullptr, nullptr, nullptr},  // three numbers only
    };
    const std::string untouched4 = "5a 5a 5a 5a";
    const std::string untouched16 = "5a 5a 5a 5a 5a 5a 5a 5a 5a 5a 5a 5a 5a 5a 5a 5a";
    for (const auto &c : cases) {
        char type[16];
        char addresses[256];
        snprintf(type, sizeof(type), "%s", c.type);
        snprintf(addresses, sizeof(addresses), "%s", c.addresses.c_str());
        int family = 99;
        unsigned int ipv4;
        unsigned char ipv6[16];
        memset(&ipv4, 0x5A, sizeof(ipv4));
        memset(ipv6, 0x5A, sizeof(ipv6));
        LogCapture logs;
        parseIPAddress(type, addresses, &family, &ipv4, ipv6);
        EXPECT_EQ(family, c.expectedType) << c.addresses;
        EXPECT_EQ(hex(&ipv4, 4), c.ipv4 ? c.ipv4 : untouched4) << c.addresses;
        EXPECT_EQ(hex(ipv6, 16), c.ipv6 ? c.ipv6 : untouched16) << c.addresses;
        if (c.error != nullptr) {
            EXPECT_TRUE(logs.containsMessage(c.error)) << c.addresses;
        }
    }
}

TEST(DataCallRecordTest, DottedTextClasses) {
    char oneDot[] = "1.2", ipv4[] = "1.2.3.4", ipv6[] = "1.2.3.4.5.6.7.8.9.10.11.12.13.14.15.16.17";
    EXPECT_EQ(classifyIpAddressText(oneDot), -1);
    EXPECT_EQ(classifyIpAddressText(ipv4), 0);
    EXPECT_EQ(classifyIpAddressText(ipv6), 1);
    unsigned char out[16];
    EXPECT_EQ(ipv6TextToBytes(ipv6, out), 0);  // the seventeenth number is ignored
    EXPECT_EQ(hex(out, 16), "01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10");
}

}  // namespace

// Data-call entries of each version family, decoded field by field, and the address texts.
#include "codec/data_call_record.h"

#include <binder/Parcel.h>
#include <gtest/gtest.h>
#include <string.h>

#include <memory>
#include <string>

#include "codec/ip_address_text.h"
#include "support/bytes.h"
#include "support/log_capture.h"

namespace {

const std::string kIpv6Dotted = "32.1.13.184.0.0.0.0.0.0.0.0.0.0.0.1";
const char *kIpv6Bytes = "20 01 0d b8 00 00 00 00 00 00 00 00 00 00 00 01";
const char *kStatusLog = "read from rild, status = 0, suggestedRetryTime = -1, cid = 3, active = 2";

// Builds a Parcel from literal values, as the daemon would write it.
struct Wire {
    android::Parcel p;
    Wire &i(int32_t v) { return p.writeInt32(v), *this; }
    Wire &s(const std::string &ascii) {
        std::u16string units(ascii.begin(), ascii.end());
        return p.writeString16(units.data(), units.size()), *this;
    }
    // Status 0, no retry time, cid 3, active 2, IPV4V6 addresses, `dnses`, two gateways.
    Wire &head(const std::string &dnses) {
        i(0).i(-1).i(3).i(2).s("IPV4V6").s("rmnet_data0");
        return s("10.1.2.3/24 " + kIpv6Dotted).s(dnses).s("fe80::1 10.1.2.1");
    }
    // A bearer without QoS, TFT or P-CSCF: seven fields, then the three presence flags.
    Wire &bearer(int32_t cid) { return i(1).i(2).i(cid).i(1).i(0).i(5).i(0).i(0).i(0).i(0); }
    // Reads the entry into a record whose every byte is 5a, so what is left alone shows.
    std::unique_ptr<ZOK_Data_Call_Response_v11> read(int version) {
        auto d = std::make_unique<ZOK_Data_Call_Response_v11>();
        memset(d.get(), 0x5A, sizeof(*d));
        p.setDataPosition(0);
        readDataCallFromParcel(p, d.get(), version, 1);
        return d;
    }
    size_t unread() const { return p.dataSize() - p.dataPosition(); }
};

// Version 6 stops after the gateways; every other version, the oldest (5) included, carries the
// P-CSCF text and the mtu. Only the first gateway counts; DNS servers past two of a family are
// logged, not stored.
TEST(DataCallRecordTest, ShortAndLongForm) {
    for (int version : {6, 5, 11}) {
        SCOPED_TRACE(version);
        const bool v6 = version == 6;
        Wire w;
        w.head("8.8.8.8 2001:db8::53 1.1.1.1 ::1 2.2.2.2 ::2").s("10.0.0.9").i(1400).i(77);
        LogCapture logs;
        auto d = w.read(version);
        EXPECT_EQ(w.unread(), v6 ? 32u : 4u);  // P-CSCF (24 bytes), mtu; no eran_type below 1001
        EXPECT_EQ(d->mtuSize, v6 ? 0x5A5A5A5A : 1400);
        EXPECT_EQ(logs.containsMessage(kStatusLog), !v6);
        EXPECT_EQ(d->ipv4DnsNum, 2u);
        EXPECT_EQ(hex(d->ipv4Dns, 8), "08 08 08 08 01 01 01 01");
        EXPECT_TRUE(logs.containsMessage("ipv4 dns[2] = 2.2.2.2"));
        EXPECT_EQ(d->ipv6DnsNum, 2u);
        EXPECT_EQ(hex(d->ipv6Dns, 32), "20 01 0d b8 00 00 00 00 00 00 00 00 00 00 00 53 " +
                                           hex(std::vector<uint8_t>(15)) + " 01");
        EXPECT_EQ(hex(d->ipv6Gateway, 16), "fe 80 00 00 00 00 00 00 00 00 00 00 00 00 00 01");
        EXPECT_EQ(d->ipv4Gateway, 0x5A5A5A5Au);
    }
}

// The default bearer's ddcId comes from the wire; concatenated bearers keep the caller's. Surplus
// bearers are consumed so the default bearer after them stays aligned; a hostile count stops at
// the end of the Parcel.
TEST(DataCallRecordTest, ExtendedVersionReadsBearersAndOnlyDefaultDdcId) {
    const struct {
        int32_t count;  // on the wire
        int bearers;    // present on the wire, cids 100, 101, ...
        bool tail;      // ddcId 9, default bearer cid 13, eran_type 3
        int32_t stored, lastStoredCid;
    } cases[] = {{2, 2, true, 2, 101},
                 {12, 12, true, 11, 110},
                 {1000000, 1, false, 11, 0},
                 {-1, 0, true, -1, 0}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.count);
        Wire w;
        w.head("").s("").i(1500).i(c.count);
        for (int i = 0; i < c.bearers; i++) w.bearer(100 + i);
        if (c.tail) w.i(9).bearer(13).i(3);
        auto d = w.read(1001);
        EXPECT_EQ(w.unread(), 0u);
        EXPECT_EQ(d->ipv6DnsNum, 1u);  // the empty text is one token, taken the IPv6 way
        EXPECT_EQ(d->concatenateNum, c.stored);
        EXPECT_EQ(d->concatenate[0].ddcId, 0x5A5A5A5A);
        EXPECT_EQ(d->concatenate[0].cid, c.stored > 0 ? 100 : 0x5A5A5A5A);
        if (c.stored > 0) {
            EXPECT_EQ(d->concatenate[c.stored - 1].cid, c.lastStoredCid);
        }
        EXPECT_EQ(d->defaultBearerValid, 1);
        if (c.tail) {
            EXPECT_EQ(d->defaultBearer.ddcId, 9);
            EXPECT_EQ(d->defaultBearer.cid, 13);
            EXPECT_EQ(d->defaultBearer.pcscf.count, 0);  // no list: a count of 0, not the 5a's
            EXPECT_EQ(d->eran_type, 3);
        }
    }
}

TEST(DataCallRecordTest, AddressTexts) {
    const std::string untouched4 = "5a 5a 5a 5a ", ipv6 = kIpv6Bytes,
                      untouched16 = "5a 5a 5a 5a 5a 5a 5a 5a 5a 5a 5a 5a 5a 5a 5a 5a";
    const struct {
        const char *type;
        std::string addresses;
        int expectedType;
        std::string bytes;  // IPv4 then IPv6
        const char *error;
    } cases[] = {
        {"IP", "192.168.1.7/24", 0, "c0 a8 01 07 " + untouched16, nullptr},
        {"IPV6", "2001:db8::1", 1, untouched4 + ipv6, nullptr},
        {"IPV4V6", "10.1.2.3", 2, untouched4 + untouched16, "invalid address (10.1.2.3)"},
        {"ip", "10.1.2.3", -1, untouched4 + untouched16, "invalid ip_type = ip, type = -1"},
        {"IP", "10.1.2.", 0, untouched4 + untouched16, nullptr},  // three numbers only
        {"IPV6", "1.2.3.4.5.6.7.8.9.10.11.12.13.14.15.16.17", 1,  // the seventeenth is ignored
         untouched4 + "01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10", nullptr},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.addresses);
        std::string type = c.type, addresses = c.addresses;
        int family = 99;
        struct {
            unsigned int ipv4;
            unsigned char ipv6[16];
        } out;
        memset(&out, 0x5A, sizeof(out));
        LogCapture logs;
        parseIPAddress(&type[0], &addresses[0], &family, &out.ipv4, out.ipv6);
        EXPECT_EQ(family, c.expectedType);
        EXPECT_EQ(hex(&out, sizeof(out)), c.bytes);
        EXPECT_TRUE(c.error == nullptr || logs.containsMessage(c.error));
    }
}

}  // namespace

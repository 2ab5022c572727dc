// Dedicated bearers: TFT written and read back, counts beyond their arrays, P-CSCF lists. (A
// bearer's own fields in order are decoded in the notification and handler tests.)
#include "codec/bearer_record.h"

#include <binder/Parcel.h>
#include <gtest/gtest.h>
#include <string.h>

#include <string>

#include "support/bytes.h"
#include "support/log_capture.h"

namespace {

// The field order is the round trip's below; what it cannot show is a text filling its field
// without a NUL: all 65 characters go out, and not one of the field after it.
TEST(BearerRecordTest, FilterTextsNeverReadPastTheirField) {
    ZOK_Tft t = {};
    t.pfNumber = 1;
    memset(t.pfList[0].address, 'a', sizeof(t.pfList[0].address));
    strcpy(t.pfList[0].mask, "m");
    android::Parcel p;
    writeTftStructToParcel(p, &t);
    std::string a65;
    for (int i = 0; i < 65; i++) a65 += " 61 00";
    // After operation, pfNumber and five int32: the address, then the mask.
    EXPECT_EQ(hex(p.data() + 28, 144), "41 00 00 00" + a65 + " 00 00 01 00 00 00 6d 00 00 00");
}

ZOK_Tft sampleTft(int pfs, int linked, int entries, int tokens, int flows) {
    ZOK_Tft t = {};
    t.operation = 3;
    t.pfNumber = pfs;
    for (int i = 0; i < ZOK_TFT_PF_MAX; i++) {
        t.pfList[i] = {i + 1, 1, 2, 3, 4, "", "255.255.0.0", 17, 5, 6, 7, 8, 0x1000 + i, 9, 10, 11};
        snprintf(t.pfList[i].address, sizeof(t.pfList[i].address), "10.0.0.%d", i);
    }
    t.linkedPfNumber = linked;
    for (int i = 0; i < ZOK_TFT_LINKED_PF_MAX; i++) t.linkedPfList[i] = 200 + i;
    t.authtokenFlowIdNumber = entries;
    for (auto &e : t.authtokenFlowIdList) {
        e.authTokenNumber = tokens;
        for (int i = 0; i < ZOK_TFT_AUTH_TOKEN_MAX; i++) e.authTokenList[i] = 300 + i;
        e.flowIdNumber = flows;
        for (int i = 0; i < ZOK_TFT_FLOW_ID_MAX; i++) e.flowIdList[i][3] = 400 + i;
    }
    return t;
}

// Counts at their arrays travel whole; counts beyond them are written clamped, so the same
// record comes back and whatever follows on the wire stays aligned. Negative counts, nested ones
// too, travel and come back as they are.
TEST(BearerRecordTest, TftReadsBackWhatWasWritten) {
    const ZOK_Tft full = sampleTft(16, 16, 4, 16, 4);
    const ZOK_Tft negative = sampleTft(-1, -2, -3, 0, 0);
    ZOK_Tft nested = sampleTft(1, 0, 1, 0, 0);
    nested.authtokenFlowIdList[0].authTokenNumber = -4;
    nested.authtokenFlowIdList[0].flowIdNumber = -5;
    const struct {
        ZOK_Tft in;
        const ZOK_Tft &out;
    } cases[] = {
        {full, full}, {sampleTft(17, 99, 5, 30, 9), full}, {negative, negative}, {nested, nested}};
    for (const auto &c : cases) {
        android::Parcel p;
        writeTftStructToParcel(p, const_cast<ZOK_Tft *>(&c.in));
        p.writeInt32(0x5EED);
        p.setDataPosition(0);
        ZOK_Tft out = sampleTft(0, 0, 0, 0, 0);
        readTftStructFromParcel(p, &out);
        EXPECT_EQ(p.readInt32(), 0x5EED);
        EXPECT_EQ(memcmp(&out, &c.out, sizeof(out)), 0);
    }
}

TEST(BearerRecordTest, SurplusOnTheWireIsConsumedAndDropped) {
    android::Parcel p;
    p.writeInt32(7);
    p.writeInt32(17);  // pfNumber
    for (int i = 0; i < 17; i++) {
        for (int f = 0; f < 5; f++) p.writeInt32(i);
        p.writeString16(u"a", 1);
        p.writeString16(u"m", 1);
        for (int f = 0; f < 9; f++) p.writeInt32(i);
    }
    p.writeInt32(17);  // linkedPfNumber
    for (int i = 0; i < 17; i++) p.writeInt32(i);
    p.writeInt32(5);  // authtokenFlowIdNumber
    for (int e = 0; e < 5; e++) {
        p.writeInt32(17);
        for (int i = 0; i < 17; i++) p.writeInt32(i);
        p.writeInt32(5);
        for (int i = 0; i < 20; i++) p.writeInt32(i);
    }
    p.writeInt32(0x5EED);
    p.setDataPosition(0);
    ZOK_Tft t;
    memset(&t, 0x5A, sizeof(t));
    readTftStructFromParcel(p, &t);
    EXPECT_EQ(p.readInt32(), 0x5EED);
    EXPECT_EQ(t.pfNumber, 16);
    EXPECT_EQ(t.pfList[15].flowLabel, 15);
    EXPECT_EQ(t.linkedPfNumber, 16);
    EXPECT_EQ(t.authtokenFlowIdNumber, 4);
    EXPECT_EQ(t.authtokenFlowIdList[3].authTokenNumber, 16);
    EXPECT_EQ(t.authtokenFlowIdList[3].flowIdNumber, 4);
    EXPECT_EQ(t.authtokenFlowIdList[3].flowIdList[3][3], 15);
}

TEST(BearerRecordTest, HostileCountOnShortParcelStopsAtTheEnd) {
    std::vector<uint8_t> wire =
        bytes("01 00 00 00 40 42 0f 00 09 00 00 00 ff ff");  // pfNumber 1000000, odd tail
    android::Parcel p;
    p.setData(wire.data(), wire.size());
    ZOK_Tft t;
    memset(&t, 0x5A, sizeof(t));
    LogCapture logs;
    readTftStructFromParcel(p, &t);
    EXPECT_EQ(t.pfNumber, 16);
    EXPECT_EQ(t.pfList[0].id, 9);
    EXPECT_EQ(t.linkedPfNumber, 0);
    EXPECT_LT(logs.messages().size(), 40u);
}

TEST(BearerRecordTest, PcscfTokensKeepTheirSlots) {
    const struct {
        std::u16string text;
        int count, mask;
        const char *slot0;  // hex, first four bytes
        const char *log;
    } cases[] = {
        {u"", 1, 1, "5a 5a 5a 5a", "ipv6 pcscf[0] = "},
        {u"1.2 10.0.0.5", 2, 1, "5a 5a 5a 5a", "ipv4 pcscf[1] = 10.0.0.5"},
        {u"1.1.1.1 1.1.1.1 1.1.1.1 1.1.1.1 1.1.1.1 1.1.1.1 1.1.1.1 1.1.1.1 1.1.1.1 1.1.1.1 "
         u"1.1.1.1 1.1.1.1 1.1.1.1 1.1.1.1 1.1.1.1 1.1.1.1 9.9.9.9",
         16, 0, "01 01 01 01", "ipv4 pcscf[16] = 9.9.9.9"},
    };
    for (const auto &c : cases) {
        android::Parcel p;
        p.writeString16(c.text.data(), c.text.size());
        p.setDataPosition(0);
        dm_pcscf_t pcscf;
        memset(&pcscf, 0x5A, sizeof(pcscf));
        LogCapture logs;
        readPcscfFromParcel(p, &pcscf);
        EXPECT_EQ(pcscf.count, c.count);
        EXPECT_EQ(pcscf.ipv6Mask, c.mask);
        EXPECT_EQ(hex(pcscf.address[0], 4), c.slot0);
        EXPECT_TRUE(logs.containsMessage(c.log)) << c.log;
    }
}

}  // namespace

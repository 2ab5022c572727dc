// The framework's fixed records for data calls, dedicated bearers, QoS, TFT and P-CSCF lists.
// They cross to other framework entities as raw bytes, so every size and offset is pinned below.
#ifndef ZOK_RECORDS_H
#define ZOK_RECORDS_H

#include <stddef.h>
#include <stdint.h>

#define ZOK_TFT_PF_MAX 16
#define ZOK_TFT_LINKED_PF_MAX 16
#define ZOK_TFT_AUTH_FLOW_MAX 4
#define ZOK_TFT_AUTH_TOKEN_MAX 16
#define ZOK_TFT_FLOW_ID_MAX 4
#define ZOK_PF_ADDRESS_SIZE 65
#define ZOK_PCSCF_MAX 16
#define ZOK_DNS_MAX 2
#define ZOK_CONCATENATE_MAX 11
#define ZOK_IFNAME_SIZE 128

#define ZOK_QOS_VALUES 5

// Five values in the framework's order, copied to and from the daemon without interpretation.
typedef struct {
    int32_t value[ZOK_QOS_VALUES];
} ZOK_Qos;

typedef struct {
    int32_t id;
    int32_t precedence;
    int32_t direction;
    int32_t networkPfIdentifier;
    int32_t bitmap;
    char address[ZOK_PF_ADDRESS_SIZE];
    char mask[ZOK_PF_ADDRESS_SIZE];
    int32_t protocolNextHeader;
    int32_t localPortLow;
    int32_t localPortHigh;
    int32_t remotePortLow;
    int32_t remotePortHigh;
    int32_t spi;
    int32_t tos;
    int32_t tosMask;
    int32_t flowLabel;
} ZOK_PktFilter;

typedef struct {
    int32_t authTokenNumber;
    int32_t authTokenList[ZOK_TFT_AUTH_TOKEN_MAX];
    int32_t flowIdNumber;
    int32_t flowIdList[ZOK_TFT_FLOW_ID_MAX][4];
} ZOK_AuthTokenFlowId;

typedef struct {
    int32_t operation;
    int32_t pfNumber;
    ZOK_PktFilter pfList[ZOK_TFT_PF_MAX];
    int32_t linkedPfNumber;
    int32_t linkedPfList[ZOK_TFT_LINKED_PF_MAX];
    int32_t authtokenFlowIdNumber;
    ZOK_AuthTokenFlowId authtokenFlowIdList[ZOK_TFT_AUTH_FLOW_MAX];
} ZOK_Tft;

typedef struct {
    uint16_t count;     // addresses stored
    uint16_t ipv6Mask;  // bit i set: address i is IPv6
    unsigned char address[ZOK_PCSCF_MAX][16];
} dm_pcscf_t;

typedef struct {
    int32_t ddcId;
    int32_t interfaceId;
    int32_t primaryCid;
    int32_t cid;
    int32_t active;
    int32_t signalingFlag;
    int32_t bearerId;
    int32_t failCause;
    int32_t hasQos;
    ZOK_Qos qos;
    int32_t hasTft;
    ZOK_Tft tft;
    dm_pcscf_t pcscf;
    int32_t reserved;
} ZOK_Dedicate_Data_Call_Struct;

typedef struct {
    int32_t status;
    int32_t suggestedRetryTime;
    int32_t cid;
    int32_t active;
    int32_t mtuSize;
    int32_t type;  // 0 "IP", 1 "IPV6", 2 "IPV4V6", -1 anything else
    char ifname[ZOK_IFNAME_SIZE];
    uint32_t ipv4Address;  // bytes in text order
    unsigned char ipv6Address[16];
    uint32_t ipv4DnsNum;
    uint32_t ipv4Dns[ZOK_DNS_MAX];
    uint32_t ipv6DnsNum;
    unsigned char ipv6Dns[ZOK_DNS_MAX][16];
    uint32_t ipv4Gateway;
    uint32_t ipv6Gateway[4];
    int32_t reserved0;
    int32_t concatenateNum;
    ZOK_Dedicate_Data_Call_Struct concatenate[ZOK_CONCATENATE_MAX];
    int32_t defaultBearerValid;
    ZOK_Dedicate_Data_Call_Struct defaultBearer;
    int32_t eran_type;
    unsigned char reserved1[136];  // framework fields this entity never reads or writes
    uint8_t simId;                 // SIM slot of the request, written by the set-up error reply
    unsigned char reserved2[7];
} ZOK_Data_Call_Response_v11;

static_assert(sizeof(ZOK_Qos) == 20, "ZOK_Qos size");
static_assert(sizeof(ZOK_PktFilter) == 188, "packet filter size");
static_assert(offsetof(ZOK_PktFilter, address) == 20, "pf address");
static_assert(offsetof(ZOK_PktFilter, bitmap) == 16, "pf bitmap");
static_assert(offsetof(ZOK_PktFilter, mask) == 85, "pf mask");
static_assert(offsetof(ZOK_PktFilter, protocolNextHeader) == 152, "pf protocolNextHeader");
static_assert(offsetof(ZOK_PktFilter, localPortLow) == 156, "pf localPortLow");
static_assert(offsetof(ZOK_PktFilter, remotePortLow) == 164, "pf remotePortLow");
static_assert(offsetof(ZOK_PktFilter, spi) == 172, "pf spi");
static_assert(offsetof(ZOK_PktFilter, tos) == 176, "pf tos");
static_assert(offsetof(ZOK_PktFilter, flowLabel) == 184, "pf flowLabel");
static_assert(sizeof(ZOK_AuthTokenFlowId) == 136, "auth token entry size");
static_assert(offsetof(ZOK_AuthTokenFlowId, authTokenList) == 4, "auth token list");
static_assert(offsetof(ZOK_AuthTokenFlowId, flowIdNumber) == 68, "auth flowIdNumber");
static_assert(offsetof(ZOK_AuthTokenFlowId, flowIdList) == 72, "auth flowIdList");
static_assert(sizeof(ZOK_Tft) == 3632, "ZOK_Tft size");
static_assert(offsetof(ZOK_Tft, pfList) == 8, "tft pfList");
static_assert(offsetof(ZOK_Tft, pfNumber) == 4, "tft pfNumber");
static_assert(offsetof(ZOK_Tft, linkedPfNumber) == 3016, "tft linkedPfNumber");
static_assert(offsetof(ZOK_Tft, linkedPfList) == 3020, "tft linkedPfList");
static_assert(offsetof(ZOK_Tft, authtokenFlowIdNumber) == 3084, "tft authtokenFlowIdNumber");
static_assert(offsetof(ZOK_Tft, authtokenFlowIdList) == 3088, "tft authtokenFlowIdList");
static_assert(sizeof(dm_pcscf_t) == 260, "dm_pcscf_t size");
static_assert(offsetof(dm_pcscf_t, ipv6Mask) == 2, "pcscf ipv6Mask");
static_assert(offsetof(dm_pcscf_t, address) == 4, "pcscf address");
static_assert(sizeof(ZOK_Dedicate_Data_Call_Struct) == 3956, "bearer record size");
static_assert(offsetof(ZOK_Dedicate_Data_Call_Struct, interfaceId) == 4, "bearer interfaceId");
static_assert(offsetof(ZOK_Dedicate_Data_Call_Struct, cid) == 12, "bearer cid");
static_assert(offsetof(ZOK_Dedicate_Data_Call_Struct, signalingFlag) == 20, "bearer signalingFlag");
static_assert(offsetof(ZOK_Dedicate_Data_Call_Struct, failCause) == 28, "bearer failCause");
static_assert(offsetof(ZOK_Dedicate_Data_Call_Struct, hasQos) == 32, "bearer hasQos");
static_assert(offsetof(ZOK_Dedicate_Data_Call_Struct, qos) == 36, "bearer qos");
static_assert(offsetof(ZOK_Dedicate_Data_Call_Struct, hasTft) == 56, "bearer hasTft");
static_assert(offsetof(ZOK_Dedicate_Data_Call_Struct, tft) == 60, "bearer tft");
static_assert(offsetof(ZOK_Dedicate_Data_Call_Struct, pcscf) == 3692, "bearer pcscf");
static_assert(offsetof(ZOK_Dedicate_Data_Call_Struct, reserved) == 3952, "bearer trailer");
static_assert(sizeof(ZOK_Data_Call_Response_v11) == 47872, "data-call record size");
static_assert(offsetof(ZOK_Data_Call_Response_v11, suggestedRetryTime) == 4, "dcall retry time");
static_assert(offsetof(ZOK_Data_Call_Response_v11, cid) == 8, "dcall cid");
static_assert(offsetof(ZOK_Data_Call_Response_v11, active) == 12, "dcall active");
static_assert(offsetof(ZOK_Data_Call_Response_v11, mtuSize) == 16, "dcall mtuSize");
static_assert(offsetof(ZOK_Data_Call_Response_v11, type) == 20, "dcall type");
static_assert(offsetof(ZOK_Data_Call_Response_v11, ifname) == 24, "dcall ifname");
static_assert(offsetof(ZOK_Data_Call_Response_v11, ipv4Address) == 152, "dcall ipv4Address");
static_assert(offsetof(ZOK_Data_Call_Response_v11, ipv6Address) == 156, "dcall ipv6Address");
static_assert(offsetof(ZOK_Data_Call_Response_v11, ipv4DnsNum) == 172, "dcall ipv4DnsNum");
static_assert(offsetof(ZOK_Data_Call_Response_v11, ipv4Dns) == 176, "dcall ipv4Dns");
static_assert(offsetof(ZOK_Data_Call_Response_v11, ipv6DnsNum) == 184, "dcall ipv6DnsNum");
static_assert(offsetof(ZOK_Data_Call_Response_v11, ipv6Dns) == 188, "dcall ipv6Dns");
static_assert(offsetof(ZOK_Data_Call_Response_v11, ipv4Gateway) == 220, "dcall ipv4Gateway");
static_assert(offsetof(ZOK_Data_Call_Response_v11, ipv6Gateway) == 224, "dcall ipv6Gateway");
static_assert(offsetof(ZOK_Data_Call_Response_v11, reserved0) == 240, "dcall untouched word");
static_assert(offsetof(ZOK_Data_Call_Response_v11, concatenateNum) == 244, "dcall concatenateNum");
static_assert(offsetof(ZOK_Data_Call_Response_v11, concatenate) == 248, "dcall concatenate");
static_assert(offsetof(ZOK_Data_Call_Response_v11, defaultBearerValid) == 43764, "dcall dbValid");
static_assert(offsetof(ZOK_Data_Call_Response_v11, defaultBearer) == 43768, "dcall defaultBearer");
static_assert(offsetof(ZOK_Data_Call_Response_v11, eran_type) == 47724, "dcall eran_type");
static_assert(offsetof(ZOK_Data_Call_Response_v11, simId) == 47864, "dcall simId");
// The records follow a 4-byte status in the replies and notifications: a member with 8-byte
// alignment would push them to offset 8 there and shift every byte the framework reads.
static_assert(alignof(ZOK_Data_Call_Response_v11) == 4, "dcall alignment");
static_assert(alignof(ZOK_Dedicate_Data_Call_Struct) == 4, "bearer alignment");
static_assert(alignof(dm_pcscf_t) == 2, "pcscf alignment");

#endif  // ZOK_RECORDS_H

// Dedicated bearers, QoS, TFT and P-CSCF lists between Parcels and the framework's records.
// Reader thread (responses, unsolicited reports) and task thread (request writers); no state.
#include "codec/bearer_record.h"

#include <string.h>

#include "codec/ip_address_text.h"
#include "codec/parcel_strings.h"
#include "codec/wire_lists.h"
#include "core/log.h"

// The framework's text fields are not guaranteed to hold a NUL; never read past the field.
template <size_t N>
static void writeFieldText(android::Parcel &parcel, const char (&field)[N]) {
    char text[N + 1];
    memcpy(text, field, N);
    text[N] = '\0';
    writeUtf8StringToParcel(parcel, text);
}

static void readPacketFilter(android::Parcel &parcel, int index, ZOK_PktFilter *pf) {
    ZOK_LOG_AS(kSigReadTftStructFromParcel);
    pf->id = parcel.readInt32();
    pf->precedence = parcel.readInt32();
    pf->direction = parcel.readInt32();
    pf->networkPfIdentifier = parcel.readInt32();
    pf->bitmap = parcel.readInt32();
    readUtf8StringFromParcel(parcel, pf->address, sizeof(pf->address));
    readUtf8StringFromParcel(parcel, pf->mask, sizeof(pf->mask));
    pf->protocolNextHeader = parcel.readInt32();
    pf->localPortLow = parcel.readInt32();
    pf->localPortHigh = parcel.readInt32();
    pf->remotePortLow = parcel.readInt32();
    pf->remotePortHigh = parcel.readInt32();
    pf->spi = parcel.readInt32();
    pf->tos = parcel.readInt32();
    pf->tosMask = parcel.readInt32();
    pf->flowLabel = parcel.readInt32();
    RLOGI("[%d] id = %d, precedence = %d, direction = %d, networkPfIdentifier = %d, bitmap = %d",
          index, pf->id, pf->precedence, pf->direction, pf->networkPfIdentifier, pf->bitmap);
    RLOGI(
        "[%d] address = %s, mask = %s, protocolNextHeader = %d, localPort = %d/%d, remotePort = "
        "%d/%d, spi = %d, tos = %d, tosMask = %d, flowLabel = %d",
        index, pf->address, pf->mask, pf->protocolNextHeader, pf->localPortLow, pf->localPortHigh,
        pf->remotePortLow, pf->remotePortHigh, pf->spi, pf->tos, pf->tosMask, pf->flowLabel);
}

static void writePacketFilter(android::Parcel &parcel, const ZOK_PktFilter *pf) {
    parcel.writeInt32(pf->id);
    parcel.writeInt32(pf->precedence);
    parcel.writeInt32(pf->direction);
    parcel.writeInt32(pf->networkPfIdentifier);
    parcel.writeInt32(pf->bitmap);
    writeFieldText(parcel, pf->address);
    writeFieldText(parcel, pf->mask);
    parcel.writeInt32(pf->protocolNextHeader);
    parcel.writeInt32(pf->localPortLow);
    parcel.writeInt32(pf->localPortHigh);
    parcel.writeInt32(pf->remotePortLow);
    parcel.writeInt32(pf->remotePortHigh);
    parcel.writeInt32(pf->spi);
    parcel.writeInt32(pf->tos);
    parcel.writeInt32(pf->tosMask);
    parcel.writeInt32(pf->flowLabel);
}

static void readAuthTokenEntry(android::Parcel &parcel, int index, ZOK_AuthTokenFlowId *entry) {
    ZOK_LOG_AS(kSigReadTftStructFromParcel);
    int tokens = parcel.readInt32();
    RLOGI("[%d] authTokenNumber = %d", index, tokens);
    int32_t scratchToken;
    for (int j = 0; j < tokens; j++) {
        int32_t *token = slotFor(parcel, entry->authTokenList, j, &scratchToken);
        if (token == nullptr) break;
        *token = parcel.readInt32();
        RLOGI("    [%d] authTokenList = %d", j, *token);
    }
    entry->authTokenNumber = storedCount(tokens, ZOK_TFT_AUTH_TOKEN_MAX);

    int flows = parcel.readInt32();
    RLOGI("[%d] flowIdNumber = %d", index, flows);
    int32_t scratchFlow[4];
    for (int j = 0; j < flows; j++) {
        int32_t(*flow)[4] = slotFor(parcel, entry->flowIdList, j, &scratchFlow);
        if (flow == nullptr) break;
        for (int k = 0; k < 4; k++) {
            (*flow)[k] = parcel.readInt32();
            RLOGI("    flowIdList[%d][%d] = %d", j, k, (*flow)[k]);
        }
    }
    entry->flowIdNumber = storedCount(flows, ZOK_TFT_FLOW_ID_MAX);
}

static void writeAuthTokenEntry(android::Parcel &parcel, const ZOK_AuthTokenFlowId *entry) {
    int tokens = storedCount(entry->authTokenNumber, ZOK_TFT_AUTH_TOKEN_MAX);
    parcel.writeInt32(tokens);
    for (int j = 0; j < tokens; j++) parcel.writeInt32(entry->authTokenList[j]);

    int flows = storedCount(entry->flowIdNumber, ZOK_TFT_FLOW_ID_MAX);
    parcel.writeInt32(flows);
    for (int j = 0; j < flows; j++) {
        for (int k = 0; k < 4; k++) parcel.writeInt32(entry->flowIdList[j][k]);
    }
}

void readDedicateDataFromParcel(android::Parcel &parcel, ZOK_Dedicate_Data_Call_Struct *bearer) {
    ZOK_LOG_SELF(kSigReadDedicateDataFromParcel);
    if (bearer == nullptr) return;
    bearer->interfaceId = parcel.readInt32();
    bearer->primaryCid = parcel.readInt32();
    bearer->cid = parcel.readInt32();
    bearer->active = parcel.readInt32();
    bearer->signalingFlag = parcel.readInt32();
    bearer->bearerId = parcel.readInt32();
    bearer->failCause = parcel.readInt32();
    bearer->hasQos = parcel.readInt32();
    RLOGI(
        "read from rild, interfaceId = %d, cid = %d/%d, active = %d, signel = %d, bid = %d, "
        "cause = %d, hasQos = %d",
        bearer->interfaceId, bearer->primaryCid, bearer->cid, bearer->active, bearer->signalingFlag,
        bearer->bearerId, bearer->failCause, bearer->hasQos);
    if (bearer->hasQos) {
        int32_t *qos = bearer->qos.value;
        for (int i = 0; i < ZOK_QOS_VALUES; i++) qos[i] = parcel.readInt32();
        RLOGI("read qos from rild, %d/%d/%d/%d/%d", qos[0], qos[1], qos[2], qos[3], qos[4]);
    }
    bearer->hasTft = parcel.readInt32();
    if (bearer->hasTft) readTftStructFromParcel(parcel, &bearer->tft);
    // The presence flag is not part of the record; an absent list is told by its count alone.
    int hasPcscf = parcel.readInt32();
    RLOGI("hasPcscf = %d", hasPcscf);
    if (hasPcscf) {
        readPcscfFromParcel(parcel, &bearer->pcscf);
    } else {
        bearer->pcscf.count = 0;
    }
}

void readTftStructFromParcel(android::Parcel &parcel, ZOK_Tft *tft) {
    ZOK_LOG_SELF(kSigReadTftStructFromParcel);
    if (tft == nullptr) return;
    tft->operation = parcel.readInt32();
    int filters = parcel.readInt32();
    RLOGI("operation = %d, pfNumber = %d", tft->operation, filters);
    ZOK_PktFilter scratchFilter;
    for (int i = 0; i < filters; i++) {
        ZOK_PktFilter *pf = slotFor(parcel, tft->pfList, i, &scratchFilter);
        if (pf == nullptr) break;
        readPacketFilter(parcel, i, pf);
    }
    tft->pfNumber = storedCount(filters, ZOK_TFT_PF_MAX);

    int linked = parcel.readInt32();
    RLOGI("linkedPfNumber = %d", linked);
    int32_t scratchLinked;
    for (int i = 0; i < linked; i++) {
        int32_t *id = slotFor(parcel, tft->linkedPfList, i, &scratchLinked);
        if (id == nullptr) break;
        *id = parcel.readInt32();
        RLOGI("[%d] linkedPfList = %d", i, *id);
    }
    tft->linkedPfNumber = storedCount(linked, ZOK_TFT_LINKED_PF_MAX);

    int entries = parcel.readInt32();
    RLOGI("authtokenFlowIdNumber = %d", entries);
    ZOK_AuthTokenFlowId scratchEntry;
    for (int i = 0; i < entries; i++) {
        ZOK_AuthTokenFlowId *entry = slotFor(parcel, tft->authtokenFlowIdList, i, &scratchEntry);
        if (entry == nullptr) break;
        readAuthTokenEntry(parcel, i, entry);
    }
    tft->authtokenFlowIdNumber = storedCount(entries, ZOK_TFT_AUTH_FLOW_MAX);
}

void writeTftStructToParcel(android::Parcel &parcel, ZOK_Tft *tft) {
    if (tft == nullptr) return;
    parcel.writeInt32(tft->operation);
    int filters = storedCount(tft->pfNumber, ZOK_TFT_PF_MAX);
    parcel.writeInt32(filters);
    for (int i = 0; i < filters; i++) writePacketFilter(parcel, &tft->pfList[i]);

    int linked = storedCount(tft->linkedPfNumber, ZOK_TFT_LINKED_PF_MAX);
    parcel.writeInt32(linked);
    for (int i = 0; i < linked; i++) parcel.writeInt32(tft->linkedPfList[i]);

    int entries = storedCount(tft->authtokenFlowIdNumber, ZOK_TFT_AUTH_FLOW_MAX);
    parcel.writeInt32(entries);
    for (int i = 0; i < entries; i++) writeAuthTokenEntry(parcel, &tft->authtokenFlowIdList[i]);
}

void writeQosStructToParcel(android::Parcel &parcel, ZOK_Qos *qos) {
    ZOK_LOG_SELF(kSigWriteQosStructToParcel);
    if (qos == nullptr) return;
    const int32_t *v = qos->value;
    for (int i = 0; i < ZOK_QOS_VALUES; i++) parcel.writeInt32(v[i]);
    RLOGI("write qos to rild, %d/%d/%d/%d/%d", v[0], v[1], v[2], v[3], v[4]);
}

// Tokens past the sixteenth are logged with the index they would have had, never stored. A token
// that fails to convert still takes its slot, so addresses keep the daemon's positions.
void readPcscfFromParcel(android::Parcel &parcel, dm_pcscf_t *pcscf) {
    ZOK_LOG_SELF(kSigReadPcscfFromParcel);
    char text[1024];
    memset(text, 0, sizeof(text));
    readUtf8StringFromParcel(parcel, text, sizeof(text));
    RLOGI("pcscf_str = (%s)", text);
    if (pcscf == nullptr) return;
    pcscf->count = 0;
    pcscf->ipv6Mask = 0;
    char *next = text;
    while (next != nullptr) {
        char *token = next;
        next = cutAtBlank(token);
        bool full = pcscf->count >= ZOK_PCSCF_MAX;
        if (classifyIpAddressText(token) != 0) {
            RLOGI("ipv6 pcscf[%d] = %s", pcscf->count, token);
            if (full) continue;
            ipv6TextToBytes(token, pcscf->address[pcscf->count]);
            pcscf->ipv6Mask = static_cast<uint16_t>(pcscf->ipv6Mask | (1u << pcscf->count));
        } else {
            RLOGI("ipv4 pcscf[%d] = %s", pcscf->count, token);
            if (full) continue;
            ipv4TextToBytes(token, pcscf->address[pcscf->count]);
        }
        pcscf->count++;
    }
}

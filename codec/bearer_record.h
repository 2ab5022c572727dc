// Dedicated bearers, QoS, TFT and P-CSCF lists between Parcels and the framework's records.
// Counts from the wire are stored up to their arrays; the surplus is consumed, never stored.
// Any thread; no state.
#ifndef ZOK_CODEC_BEARER_RECORD_H
#define ZOK_CODEC_BEARER_RECORD_H

#include <binder/Parcel.h>

#include "zok_records.h"

void readDedicateDataFromParcel(android::Parcel &parcel, ZOK_Dedicate_Data_Call_Struct *bearer);
void readTftStructFromParcel(android::Parcel &parcel, ZOK_Tft *tft);
void readPcscfFromParcel(android::Parcel &parcel, dm_pcscf_t *pcscf);
void writeQosStructToParcel(android::Parcel &parcel, ZOK_Qos *qos);
void writeTftStructToParcel(android::Parcel &parcel, ZOK_Tft *tft);

#endif  // ZOK_CODEC_BEARER_RECORD_H

// One data-call entry from a Parcel into ZOK_Data_Call_Response_v11, with its address, gateway
// and DNS texts. Any thread; no state.
#ifndef ZOK_CODEC_DATA_CALL_RECORD_H
#define ZOK_CODEC_DATA_CALL_RECORD_H

#include <binder/Parcel.h>

#include "zok_records.h"

void readDataCallFromParcel(android::Parcel &parcel, ZOK_Data_Call_Response_v11 *dcall, int version,
                            int hasEranType);
void parseIPAddress(char *ipType, char *addresses, int *type, unsigned int *ipv4,
                    unsigned char *ipv6);
void parseGatewayAddress(char *gateways, unsigned int *ipv4, unsigned int *ipv6);

#endif  // ZOK_CODEC_DATA_CALL_RECORD_H

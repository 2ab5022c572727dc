// The texts that open every log line: each entity function whose lines the framework's engineers
// read by name, spelled as clang (the device's compiler) prints its signature, types as they are
// declared (task_ptr_t, not vopa_task *). Host and device logs then read the same whatever the
// compiler, and a helper writes its lines under the name of the function it works for.
//
//     void *rilproxy_cmd_resp_thread(void *arg) {
//         ZOK_LOG_SELF(kSigCmdRespThread);    // under clang, checked against the real signature
//     static void chooseSocketName(...) {
//         ZOK_LOG_AS(kSigCmdRespThread);      // a helper of the reader thread
//
// Handler-table and notification functions share a signature per kind; their texts are built
// from the function's name by the RILPROXY_*_SIGNATURE macros.
#ifndef ZOK_CORE_SIGNATURES_H
#define ZOK_CORE_SIGNATURES_H

// Entry points.
inline constexpr char kSigEntityInit[] =
    "entity_ptr_t rilproxy_entity_init(entity_ptr_t, const entity_init_arg_ptr_t)";
inline constexpr char kSigEntityVersion[] = "void rilproxy_entity_version()";

// Task dispatcher, request tracking.
inline constexpr char kSigTaskHdl[] = "void *rilproxy_task_hdl(task_ptr_t, event_ptr_t, void *)";
inline constexpr char kSigHandleRilRequest[] =
    "int rilproxy_handle_ril_request(rilproxy_entity_priv_t *, event_ptr_t, ril_handler_t *)";
inline constexpr char kSigHandleRilRequestTlv[] =
    "int rilproxy_handle_ril_request_tlv(rilproxy_entity_priv_t *, event_ptr_t, "
    "ril_handler_tlv_t *)";
inline constexpr char kSigRetryOldRequest[] =
    "int rilproxy_retry_old_request(rilproxy_entity_priv_t *, event_ptr_t)";
inline constexpr char kSigFreeAllEvent[] = "int rilproxy_free_all_event(rilproxy_entity_priv_t *)";

// Framework replies and broadcasts.
inline constexpr char kSigReplyResponse[] =
    "int rilproxy_reply_response(task_ptr_t, event_ptr_t, event_id_t, void *, int)";
inline constexpr char kSigReplyResponseOnlyStatus[] =
    "int rilproxy_reply_response_only_status(task_ptr_t, event_ptr_t, event_id_t, int)";
inline constexpr char kSigSendNotify[] =
    "int rilproxy_send_notify(task_ptr_t, task_id_t, event_id_t, void *, int)";
inline constexpr char kSigSendBcastStateNotify[] =
    "int rilproxy_send_bcast_state_notify(task_ptr_t, int)";
inline constexpr char kSigSendDataNotificationRequest[] =
    "int rilproxy_send_data_notification_request(task_ptr_t)";
inline constexpr char kSigSendAtcmdResponse[] =
    "int rilproxy_send_atcmd_response(task_ptr_t, event_ptr_t, void *, unsigned int, char *)";

// Socket frame, sender, reader thread.
inline constexpr char kSigSendFull[] = "int _send_full(int, char *, int)";
inline constexpr char kSigRecvFull[] = "int _recv_full(int, char *, int)";
inline constexpr char kSigSendRilRequest[] =
    "int rilproxy_send_ril_request(int, rilproxy_ril_requset_param_t *)";
inline constexpr char kSigCmdRespThread[] = "void *rilproxy_cmd_resp_thread(void *)";
inline constexpr char kSigCheckThreadPipe[] =
    "int rilproxy_check_thread_pipe(rilproxy_thread_priv_t *, int, int)";

// Parcel records.
inline constexpr char kSigReadDataCallFromParcel[] =
    "void readDataCallFromParcel(android::Parcel &, ZOK_Data_Call_Response_v11 *, int, int)";
inline constexpr char kSigParseIPAddress[] =
    "void parseIPAddress(char *, char *, int *, unsigned int *, unsigned char *)";
inline constexpr char kSigParseGatewayAddress[] =
    "void parseGatewayAddress(char *, unsigned int *, unsigned int *)";
inline constexpr char kSigReadDedicateDataFromParcel[] =
    "void readDedicateDataFromParcel(android::Parcel &, ZOK_Dedicate_Data_Call_Struct *)";
inline constexpr char kSigReadTftStructFromParcel[] =
    "void readTftStructFromParcel(android::Parcel &, ZOK_Tft *)";
inline constexpr char kSigReadPcscfFromParcel[] =
    "void readPcscfFromParcel(android::Parcel &, dm_pcscf_t *)";
inline constexpr char kSigWriteQosStructToParcel[] =
    "void writeQosStructToParcel(android::Parcel &, ZOK_Qos *)";

// Handler tables: request (plain and TLV), response, error; unsolicited handlers.
#define RILPROXY_REQ_SIGNATURE(name) \
    "int rilproxy_" #name "_req(event_ptr_t, android::Parcel &, ril_supported_feature_t *)"
#define RILPROXY_REQ_TLV_SIGNATURE(name) \
    "int rilproxy_" #name "_req(event_ptr_t, android::Parcel &, rilproxy_ril_requset_param_t *)"
#define RILPROXY_RESP_SIGNATURE(name)                                     \
    "int rilproxy_" #name                                                 \
    "_resp(task_ptr_t, event_ptr_t, event_id_t, android::Parcel &, int, " \
    "ril_supported_feature_t *)"
#define RILPROXY_NOTIFY_SIGNATURE(name) \
    "int rilproxy_" #name "_notify(task_ptr_t, android::Parcel &, ril_supported_feature_t *)"
inline constexpr char kSigDatamngrError[] =
    "int rilproxy_DATAMNGR_error(task_ptr_t, event_ptr_t, event_id_t, int)";

#endif  // ZOK_CORE_SIGNATURES_H

# The entity's sources, one file per concept. Android.bp lists the same files; tools/bpcheck
# (scripts/test.sh device) fails when the two lists drift apart.
set(ZOK_ENTITY_SOURCES
    core/capability_sim.cpp
    core/dispatcher.cpp
    core/entity.cpp
    core/event_pool.cpp
    core/replies.cpp
    transport/frame.cpp
    transport/ril_channel.cpp
    transport/reader.cpp
    handlers/data_call_handlers.cpp
    handlers/handler_tables.cpp
    handlers/network_handlers.cpp
    handlers/teardown_bearer_handlers.cpp
    handlers/tlv_handlers.cpp
    codec/bearer_record.cpp
    codec/data_call_record.cpp
    codec/ip_address_text.cpp
    codec/notify.cpp
    codec/notify_table.cpp
    codec/parcel_strings.cpp
    codec/utf_convert.cpp
)

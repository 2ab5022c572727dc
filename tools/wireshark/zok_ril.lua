-- Wireshark dissector for the RIL socket between libzok_rilproxy and its RIL daemon, as recorded
-- by rilproxy-host --capture, rild-sim --capture and rild-tap (docs/capture.md).
--
--   tshark -X lua_script:tools/wireshark/zok_ril.lua -r session.pcapng
--   tshark -2 -X lua_script:tools/wireshark/zok_ril.lua -q -z zokril,srt -r session.pcapng
--   mkdir -p ~/.local/lib/wireshark/plugins && cp tools/wireshark/zok_ril.lua "$_"  # 4.x
--
-- Requests and responses are matched by serial: a response without a request, and (on a second
-- pass) a request without a response, are warnings; -z zokril,srt (or Statistics > ZOK RIL)
-- tabulates the response times per request name. Another LINKTYPE_USERn is decoded with the
-- preference zokril.link_type.
--
-- Captures use link type LINKTYPE_USER0 (147); each packet is one whole frame and its direction
-- is the packet's epb_flags (outbound: entity to daemon, inbound: daemon to entity), which
-- Wireshark hands over as pinfo.p2p_dir. A packet without bytes records a close.
--
-- The two directions frame their header differently: a request carries header_size 4 and the
-- bare SIM id, a response or unsolicited frame a feature header of mask words. Header words and
-- Parcel integers are little-endian (the device's and the host's order); the length word is
-- big-endian. Everything short or inconsistent becomes expert info; the dissector itself never
-- raises a Lua error to Wireshark (a last pcall turns any slip into expert info as well).

local zok = Proto("zokril", "ZOK RIL socket")

local band = bit32.band

---------------------------------------------------------------------------------------------
-- Names

local request_names = {
    [23] = "RIL_REQUEST_RADIO_POWER",
    [27] = "RIL_REQUEST_SETUP_DATA_CALL",
    [41] = "RIL_REQUEST_DEACTIVATE_DATA_CALL",
    [56] = "RIL_REQUEST_LAST_DATA_CALL_FAIL_CAUSE",
    [111] = "RIL_REQUEST_SET_INITIAL_ATTACH_APN",
    [2077] = "ZOKRIL_REQUEST_SETUP_DEDICATE_DATA_CALL",
    [2078] = "ZOKRIL_REQUEST_DEACTIVATE_DEDICATE_DATA_CALL",
    [2079] = "ZOKRIL_REQUEST_MODIFY_DATA_CALL",
    [2080] = "ZOKRIL_REQUEST_ABORT_SETUP_DATA_CALL",
    [2081] = "ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO",
    [2106] = "ZOKRIL_REQUEST_SEND_AT_CMD",
    [2112] = "ZOKRIL_REQUEST_HANDOVER",
    [2123] = "ZOKRIL_REQUEST_SEND_AT_CMD_307",
    [2124] = "ZOKRIL_REQUEST_DEACTIVATE_DATA_CALL_2",
    [2125] = "ZOKRIL_REQUEST_NOTIFY_PS_REG_STATE",
    [2126] = "ZOKRIL_REQUEST_SEND_AT_CMD_EXT",
    [2127] = "ZOKRIL_REQUEST_PDN_INFO_IND",
    [2157] = "ZOKRIL_REQUEST_SETUP_DATA_CALL_TLV",
    [2158] = "ZOKRIL_REQUEST_LAST_DATA_CALL_FAIL_CAUSE_TLV",
    [2159] = "ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO_TLV",
}

local unsol_names = {
    [1009] = "RIL_UNSOL_IGNORED_1009",
    [3030] = "RIL_UNSOL_DEDICATE_BEARER_ACTIVATED",
    [3031] = "RIL_UNSOL_DEDICATE_BEARER_MODIFIED",
    [3032] = "RIL_UNSOL_DEDICATE_BEARER_DEACTIVATED",
    [3072] = "RIL_UNSOL_DATA_CALL_RESPONSE",
    [6002] = "RIL_UNSOL_DATA_CALL_LIST_CHANGED",
}

-- The standard RIL error codes; the entity itself names 0 and 6.
local result_names = {
    [0] = "ZOKRIL_E_SUCCESS",
    [1] = "ZOKRIL_E_RADIO_NOT_AVAILABLE",
    [2] = "ZOKRIL_E_GENERIC_FAILURE",
    [3] = "ZOKRIL_E_PASSWORD_INCORRECT",
    [4] = "ZOKRIL_E_SIM_PIN2",
    [5] = "ZOKRIL_E_SIM_PUK2",
    [6] = "ZOKRIL_E_REQUEST_NOT_SUPPORTED",
    [7] = "ZOKRIL_E_CANCELLED",
    [8] = "ZOKRIL_E_OP_NOT_ALLOWED_DURING_VOICE_CALL",
    [9] = "ZOKRIL_E_OP_NOT_ALLOWED_BEFORE_REG_TO_NW",
    [10] = "ZOKRIL_E_SMS_SEND_FAIL_RETRY",
    [11] = "ZOKRIL_E_SIM_ABSENT",
    [12] = "ZOKRIL_E_SUBSCRIPTION_NOT_AVAILABLE",
    [13] = "ZOKRIL_E_MODE_NOT_SUPPORTED",
    [14] = "ZOKRIL_E_FDN_CHECK_FAILURE",
    [15] = "ZOKRIL_E_ILLEGAL_SIM_OR_ME",
}

local function name_of(names, id, what)
    return names[id] or string.format("%s_%d", what, id)
end

---------------------------------------------------------------------------------------------
-- Fields

local F = {
    direction = ProtoField.string("zokril.direction", "Direction"),
    close = ProtoField.string("zokril.close", "Connection closed by"),
    length = ProtoField.uint32("zokril.length", "Length", base.DEC),
    header_size = ProtoField.uint32("zokril.header_size", "Header size", base.DEC),
    mask = ProtoField.uint32("zokril.feature_mask", "Feature mask", base.HEX),
    feature_word = ProtoField.uint32("zokril.feature_word", "Feature word (not read)", base.HEX),
    sim_id = ProtoField.int32("zokril.sim_id", "SIM id", base.DEC),
    type = ProtoField.uint32("zokril.type", "Type", base.DEC,
                             { [0] = "solicited response", [1] = "unsolicited response" }),
    request = ProtoField.uint32("zokril.request", "Request", base.DEC, request_names),
    unsol = ProtoField.uint32("zokril.unsol", "Unsolicited response", base.DEC, unsol_names),
    serial = ProtoField.uint32("zokril.serial", "Serial", base.HEX),
    serial_slot = ProtoField.uint32("zokril.serial.slot", "Pool slot", base.DEC, nil, 0x000000FF),
    serial_seq = ProtoField.uint32("zokril.serial.seq", "Sequence", base.DEC, nil, 0x1FFFFF00),
    serial_retry = ProtoField.bool("zokril.serial.retry", "Retry flag (TLV request)", 32, nil,
                                   0x40000000),
    result = ProtoField.int32("zokril.result", "Result", base.DEC, result_names),
    response_in = ProtoField.framenum("zokril.response_in", "Response in frame", base.NONE,
                                      frametype.RESPONSE),
    request_in = ProtoField.framenum("zokril.request_in", "Request in frame", base.NONE,
                                     frametype.REQUEST),
    time = ProtoField.relative_time("zokril.time", "Time since request"),
    -- Each address of an address list, typed, beside the list's text.
    ipv4 = ProtoField.ipv4("zokril.ipv4", "IPv4 address"),
    ipv6 = ProtoField.ipv6("zokril.ipv6", "IPv6 address"),

    -- Parcel values without a field of their own carry their meaning in the item's text.
    int = ProtoField.int32("zokril.int32", "int32", base.DEC),
    text = ProtoField.string("zokril.string", "String16"),
    count = ProtoField.int32("zokril.count", "Count", base.DEC),
    entry = ProtoField.none("zokril.entry", "Entry"),
    tlv_serial = ProtoField.uint32("zokril.tlv_serial", "Serial in the Parcel", base.HEX),

    dc_version = ProtoField.int32("zokril.dc.version", "Data-call version", base.DEC),
    dc_status = ProtoField.int32("zokril.dc.status", "Status", base.DEC),
    dc_retry = ProtoField.int32("zokril.dc.retry_time", "Suggested retry time", base.DEC),
    dc_cid = ProtoField.int32("zokril.dc.cid", "Cid", base.DEC),
    dc_active = ProtoField.int32("zokril.dc.active", "Active", base.DEC),
    dc_type = ProtoField.string("zokril.dc.type", "Type"),
    dc_ifname = ProtoField.string("zokril.dc.ifname", "Interface"),
    dc_addresses = ProtoField.string("zokril.dc.addresses", "Addresses"),
    dc_dnses = ProtoField.string("zokril.dc.dnses", "DNS servers"),
    dc_gateways = ProtoField.string("zokril.dc.gateways", "Gateways"),
    dc_pcscf = ProtoField.string("zokril.dc.pcscf", "P-CSCF"),
    dc_mtu = ProtoField.int32("zokril.dc.mtu", "MTU", base.DEC),
    dc_concat = ProtoField.int32("zokril.dc.concatenate_num", "Concatenated bearers", base.DEC),
    dc_default_ddc = ProtoField.int32("zokril.dc.default_ddc_id", "Default bearer ddcId", base.DEC),
    dc_eran = ProtoField.int32("zokril.dc.eran_type", "Access network type", base.DEC),

    b_ddc = ProtoField.int32("zokril.bearer.ddc_id", "ddcId", base.DEC),
    b_interface = ProtoField.int32("zokril.bearer.interface_id", "Interface id", base.DEC),
    b_primary = ProtoField.int32("zokril.bearer.primary_cid", "Primary cid", base.DEC),
    b_cid = ProtoField.int32("zokril.bearer.cid", "Cid", base.DEC),
    b_active = ProtoField.int32("zokril.bearer.active", "Active", base.DEC),
    b_signaling = ProtoField.int32("zokril.bearer.signaling", "Signalling flag", base.DEC),
    b_bearer_id = ProtoField.int32("zokril.bearer.bearer_id", "Bearer id", base.DEC),
    b_fail = ProtoField.int32("zokril.bearer.fail_cause", "Fail cause", base.DEC),
    b_has_qos = ProtoField.int32("zokril.bearer.has_qos", "QoS follows", base.DEC),
    b_has_tft = ProtoField.int32("zokril.bearer.has_tft", "TFT follows", base.DEC),
    b_has_pcscf = ProtoField.int32("zokril.bearer.has_pcscf", "P-CSCF follows", base.DEC),
    b_pcscf = ProtoField.string("zokril.bearer.pcscf", "P-CSCF"),
    qos = ProtoField.int32("zokril.qos", "QoS value", base.DEC),

    tft_operation = ProtoField.int32("zokril.tft.operation", "Operation", base.DEC),
    tft_pf_number = ProtoField.int32("zokril.tft.pf_number", "Packet filters", base.DEC),
    pf_id = ProtoField.int32("zokril.pf.id", "Id", base.DEC),
    pf_precedence = ProtoField.int32("zokril.pf.precedence", "Precedence", base.DEC),
    pf_direction = ProtoField.int32("zokril.pf.direction", "Direction", base.DEC),
    pf_nw_id = ProtoField.int32("zokril.pf.network_id", "Network packet filter id", base.DEC),
    pf_bitmap = ProtoField.uint32("zokril.pf.bitmap", "Bitmap", base.HEX),
    pf_address = ProtoField.string("zokril.pf.address", "Address"),
    pf_mask = ProtoField.string("zokril.pf.mask", "Mask"),
    pf_protocol = ProtoField.int32("zokril.pf.protocol", "Protocol / next header", base.DEC),
    pf_local_low = ProtoField.int32("zokril.pf.local_port_low", "Local port low", base.DEC),
    pf_local_high = ProtoField.int32("zokril.pf.local_port_high", "Local port high", base.DEC),
    pf_remote_low = ProtoField.int32("zokril.pf.remote_port_low", "Remote port low", base.DEC),
    pf_remote_high = ProtoField.int32("zokril.pf.remote_port_high", "Remote port high", base.DEC),
    pf_spi = ProtoField.uint32("zokril.pf.spi", "SPI", base.HEX),
    pf_tos = ProtoField.int32("zokril.pf.tos", "TOS", base.DEC),
    pf_tos_mask = ProtoField.int32("zokril.pf.tos_mask", "TOS mask", base.DEC),
    pf_flow_label = ProtoField.int32("zokril.pf.flow_label", "Flow label", base.DEC),
    tft_linked_number = ProtoField.int32("zokril.tft.linked_pf_number", "Linked filters", base.DEC),
    tft_linked = ProtoField.int32("zokril.tft.linked_pf", "Linked filter", base.DEC),
    tft_auth_number = ProtoField.int32("zokril.tft.auth_number", "Auth token / flow id entries",
                                       base.DEC),
    tft_token_number = ProtoField.int32("zokril.tft.token_number", "Auth tokens", base.DEC),
    tft_token = ProtoField.int32("zokril.tft.token", "Auth token", base.DEC),
    tft_flow_number = ProtoField.int32("zokril.tft.flow_id_number", "Flow ids", base.DEC),
    tft_flow = ProtoField.int32("zokril.tft.flow_id", "Flow id word", base.DEC),

    at_channel = ProtoField.int32("zokril.at.channel", "AT channel index", base.DEC),
    at_length = ProtoField.int32("zokril.at.length", "AT text length", base.DEC),
    at_status = ProtoField.int32("zokril.at.word", "Leading word", base.DEC),
    at_text = ProtoField.string("zokril.at.text", "AT text"),
    fail_cause = ProtoField.int32("zokril.fail_cause", "Fail cause", base.DEC),
}

local E = {
    short = ProtoExpert.new("zokril.short", "Payload ends early", expert.group.MALFORMED,
                            expert.severity.ERROR),
    length = ProtoExpert.new("zokril.bad_length", "Length word does not match the packet",
                             expert.group.MALFORMED, expert.severity.ERROR),
    header = ProtoExpert.new("zokril.bad_header", "Header inconsistent with its size",
                             expert.group.MALFORMED, expert.severity.ERROR),
    count = ProtoExpert.new("zokril.bad_count", "Count beyond what the payload can hold",
                            expert.group.MALFORMED, expert.severity.ERROR),
    type = ProtoExpert.new("zokril.bad_type", "Unknown frame type (the entity tears down)",
                           expert.group.MALFORMED, expert.severity.ERROR),
    string16 = ProtoExpert.new("zokril.bad_string16", "String16 without its zero unit",
                               expert.group.MALFORMED, expert.severity.WARN),
    trailing = ProtoExpert.new("zokril.trailing", "Bytes after the Parcel's last value",
                               expert.group.PROTOCOL, expert.severity.WARN),
    undecoded = ProtoExpert.new("zokril.undecoded", "Payload not decoded", expert.group.UNDECODED,
                                expert.severity.NOTE),
    unknown = ProtoExpert.new("zokril.unknown_id", "Id without a name", expert.group.UNDECODED,
                              expert.severity.NOTE),
    failed = ProtoExpert.new("zokril.failed", "Request not successful",
                             expert.group.RESPONSE_CODE, expert.severity.NOTE),
    direction = ProtoExpert.new("zokril.no_direction", "Packet without direction; guessed",
                                expert.group.ASSUMPTION, expert.severity.WARN),
    closed = ProtoExpert.new("zokril.closed", "Connection closed", expert.group.SEQUENCE,
                             expert.severity.NOTE),
    no_request = ProtoExpert.new("zokril.no_request", "Response without a request in the capture",
                                 expert.group.SEQUENCE, expert.severity.WARN),
    no_response = ProtoExpert.new("zokril.no_response",
                                  "Request without a response in the capture",
                                  expert.group.SEQUENCE, expert.severity.WARN),
    lua = ProtoExpert.new("zokril.dissector_error", "Dissector error", expert.group.MALFORMED,
                          expert.severity.ERROR),
}

do
    local list = {}
    for _, field in pairs(F) do list[#list + 1] = field end
    zok.fields = list
    local experts = {}
    for _, e in pairs(E) do experts[#experts + 1] = e end
    zok.experts = experts
end

---------------------------------------------------------------------------------------------
-- A cursor over a Parcel: every read checks what is left, and the first shortfall is reported
-- once and stops the decoding of the rest.

local Cursor = {}
Cursor.__index = Cursor

local function cursor(tvb, offset)
    return setmetatable({ tvb = tvb, off = offset, stop = tvb:len(), short = false }, Cursor)
end

function Cursor:left()
    return self.stop - self.off
end

-- An empty range where the cursor stands, for items that describe a group of values.
function Cursor:here()
    if self.off >= self.stop then return self.tvb(self.stop, 0) end
    return self.tvb(self.off, 0)
end

function Cursor:fail(tree, what)
    if not self.short then
        tree:add_proto_expert_info(E.short, string.format("Payload ends before %s (%d bytes left)",
                                                          what, self:left()))
    end
    self.short = true
end

-- One int32; `label` names a value kept in a shared field.
function Cursor:int(tree, field, label)
    if self.short then return nil end
    if self:left() < 4 then
        self:fail(tree, label or "an int32")
        return nil
    end
    local range = self.tvb(self.off, 4)
    local value = range:le_int()
    local item = tree:add_le(field or F.int, range)
    if label then item:set_text(string.format("%s: %d", label, value)) end
    self.off = self.off + 4
    return value, item
end

-- The fields whose String16 is a list of addresses ("10.0.0.2/24 2001:db8::2/64", "a,b").
local address_lists = {
    [F.dc_addresses] = true, [F.dc_dnses] = true, [F.dc_gateways] = true, [F.dc_pcscf] = true,
    [F.b_pcscf] = true, [F.pf_address] = true,
}

-- The 16 bytes of an IPv6 address written as dotted decimals, as the daemon writes them
-- ("32.1.13.184.0.0.0.0.0.0.0.0.0.0.0.2"), in the usual hex groups; nil for anything else.
local function dotted_ipv6(text)
    local bytes = {}
    for n in text:gmatch("[^.]+") do
        local v = n:match("^%d+$") and tonumber(n)
        if not v or v > 255 then return nil end
        bytes[#bytes + 1] = v
    end
    if #bytes ~= 16 then return nil end
    local groups = {}
    for i = 1, 16, 2 do groups[#groups + 1] = string.format("%x", bytes[i] * 256 + bytes[i + 1]) end
    return table.concat(groups, ":")
end

-- Address.ip resolves names: only a dotted quad goes to it, only hex digits and colons (and a
-- dotted tail) to Address.ipv6.
local function add_typed_addresses(item, range, text)
    for word in text:gmatch("[^%s,;]+") do
        local address = word:gsub("/%d+$", "")
        local a, b, c, d = address:match("^(%d+)%.(%d+)%.(%d+)%.(%d+)$")
        local v6 = dotted_ipv6(address) or
                       (address:find(":", 1, true) and address:match("^[%x:%.]+$") and address)
        if a and tonumber(a) < 256 and tonumber(b) < 256 and tonumber(c) < 256 and
            tonumber(d) < 256 then
            item:add(F.ipv4, range, Address.ip(address)):set_generated()
        elseif v6 then
            local ok, typed = pcall(Address.ipv6, v6)
            if ok and typed then item:add(F.ipv6, range, typed):set_generated() end
        end
    end
end

-- One String16: int32 unit count (-1: null), the units, a zero unit, padding to 4 bytes.
function Cursor:str(tree, field, label)
    if self.short then return nil end
    if self:left() < 4 then
        self:fail(tree, label or "a String16")
        return nil
    end
    local start = self.off
    local units = self.tvb(start, 4):le_int()
    if units == -1 then
        local item = tree:add(field or F.text, self.tvb(start, 4), "")
        item:set_text(string.format("%s: (null)", label or "String16"))
        self.off = start + 4
        return nil
    end
    local bytes = (units + 1) * 2
    local size = 4 + bytes + (4 - bytes % 4) % 4
    if units < -1 or size > self:left() then
        self:fail(tree, string.format("the %d units of %s", units, label or "a String16"))
        return nil
    end
    local text = units > 0 and self.tvb(start + 4, units * 2):le_ustring() or ""
    local item = tree:add(field or F.text, self.tvb(start, size), text)
    if label then item:set_text(string.format("%s: \"%s\"", label, text)) end
    if address_lists[field] then add_typed_addresses(item, self.tvb(start, size), text) end
    if self.tvb(start + 4 + units * 2, 2):le_uint() ~= 0 then
        item:add_proto_expert_info(E.string16)
    end
    self.off = start + size
    return text
end

-- A count of items that need at least `each` bytes apiece: a negative count means none (as the
-- entity reads it), one the payload cannot hold is reported and cut down, so that a hostile
-- count never makes the dissector loop for long.
function Cursor:count(tree, field, label, each)
    local n, item = self:int(tree, field or F.count, label)
    if n == nil then return 0 end
    if n < 0 then return 0 end
    local most = math.floor(self:left() / (each or 4))
    if n > most then
        item:add_proto_expert_info(E.count, string.format("Count %d, but only %d bytes follow", n,
                                                          self:left()))
        -- One more than fits: the decoding then shows where the payload runs out.
        return most + 1
    end
    return n
end

-- Nothing may remain once a Parcel is decoded.
function Cursor:finish(tree)
    if not self.short and self:left() > 0 then
        tree:add_proto_expert_info(E.trailing, string.format("%d bytes after the last value",
                                                             self:left()))
    end
end

local function group(c, tree, label)
    local item = tree:add(F.entry, c:here())
    item:set_text(label)
    return item, c.off
end

local function close_group(c, item, start, summary)
    item:set_len(math.max(0, c.off - start))
    if summary then item:append_text(summary) end
end

---------------------------------------------------------------------------------------------
-- Records

local function qos(c, tree)
    local t, start = group(c, tree, "QoS")
    local values = {}
    for i = 1, 5 do values[i] = c:int(t, F.qos, string.format("QoS value %d", i)) or "?" end
    close_group(c, t, start, ": " .. table.concat(values, "/"))
end

local function tft(c, tree)
    local t, start = group(c, tree, "TFT")
    c:int(t, F.tft_operation)
    local filters = c:count(t, F.tft_pf_number, nil, 14 * 4 + 16)
    for i = 1, filters do
        if c.short then break end
        local p, pstart = group(c, t, string.format("Packet filter %d", i))
        c:int(p, F.pf_id)
        c:int(p, F.pf_precedence)
        c:int(p, F.pf_direction)
        c:int(p, F.pf_nw_id)
        c:int(p, F.pf_bitmap)
        local address = c:str(p, F.pf_address)
        c:str(p, F.pf_mask)
        local protocol = c:int(p, F.pf_protocol)
        for _, field in ipairs({ F.pf_local_low, F.pf_local_high, F.pf_remote_low,
                                 F.pf_remote_high, F.pf_spi, F.pf_tos, F.pf_tos_mask,
                                 F.pf_flow_label }) do
            c:int(p, field)
        end
        close_group(c, p, pstart, string.format(": %s proto %s", tostring(address),
                                                tostring(protocol)))
    end
    local linked = c:count(t, F.tft_linked_number)
    for _ = 1, linked do c:int(t, F.tft_linked) end
    local entries = c:count(t, F.tft_auth_number, nil, 8)
    for i = 1, entries do
        if c.short then break end
        local a, astart = group(c, t, string.format("Auth token / flow id entry %d", i))
        local tokens = c:count(a, F.tft_token_number)
        for _ = 1, tokens do c:int(a, F.tft_token) end
        local flows = c:count(a, F.tft_flow_number, nil, 16)
        for _ = 1, flows * 4 do c:int(a, F.tft_flow) end
        close_group(c, a, astart)
    end
    close_group(c, t, start)
end

local function nonzero(v)
    return v ~= nil and v ~= 0
end

-- A dedicated bearer as the daemon reports it (responses, notifications, data-call entries).
local function bearer(c, tree, label)
    local t, start = group(c, tree, label)
    c:int(t, F.b_interface)
    c:int(t, F.b_primary)
    local cid = c:int(t, F.b_cid)
    c:int(t, F.b_active)
    c:int(t, F.b_signaling)
    c:int(t, F.b_bearer_id)
    c:int(t, F.b_fail)
    if nonzero(c:int(t, F.b_has_qos)) then qos(c, t) end
    if nonzero(c:int(t, F.b_has_tft)) then tft(c, t) end
    if nonzero(c:int(t, F.b_has_pcscf)) then c:str(t, F.b_pcscf) end
    close_group(c, t, start, ": cid " .. tostring(cid))
end

local function bearer_list(c, tree)
    local n = c:count(tree, F.count, "Bearers", 40)
    for i = 1, n do
        if c.short then break end
        bearer(c, tree, string.format("Bearer %d", i))
    end
end

-- One data-call entry; its version decides the family: 6 stops after the gateways, every other
-- adds P-CSCF and MTU, and the daemon's extended versions (above 1000) add the bearers.
local function data_call(c, tree, version, index)
    local t, start = group(c, tree, string.format("Data call %d", index))
    c:int(t, F.dc_status)
    c:int(t, F.dc_retry)
    local cid = c:int(t, F.dc_cid)
    c:int(t, F.dc_active)
    local kind = c:str(t, F.dc_type)
    local ifname = c:str(t, F.dc_ifname)
    c:str(t, F.dc_addresses)
    c:str(t, F.dc_dnses)
    c:str(t, F.dc_gateways)
    if version ~= 6 then
        c:str(t, F.dc_pcscf)
        c:int(t, F.dc_mtu)
        if version > 1000 then
            local n = c:count(t, F.dc_concat, nil, 40)
            for i = 1, n do
                if c.short then break end
                bearer(c, t, string.format("Concatenated bearer %d", i))
            end
            c:int(t, F.dc_default_ddc)
            bearer(c, t, "Default bearer")
            c:int(t, F.dc_eran)
        end
    end
    close_group(c, t, start, string.format(": cid %s %s %s", tostring(cid), tostring(kind),
                                           tostring(ifname)))
end

local function data_call_list(c, tree)
    local version = c:int(tree, F.dc_version)
    local n = c:count(tree, F.count, "Data calls", 36)
    for i = 1, n do
        if c.short or version == nil then break end
        data_call(c, tree, version, i)
    end
end

local function counted_strings(labels)
    return function(c, tree)
        local n = c:count(tree, F.count, "Strings", 4)
        for i = 1, n do
            if c.short then break end
            c:str(tree, F.text, labels[i] or string.format("String %d", i))
        end
    end
end

local function ints(labels)
    return function(c, tree)
        for _, label in ipairs(labels) do c:int(tree, F.int, label) end
    end
end

-- The dedicated-bearer requests the entity writes: QoS and TFT behind presence words.
local function bearer_request(head)
    return function(c, tree)
        c:int(tree, F.count, "Leading word")
        for _, field in ipairs(head) do c:int(tree, field) end
        if nonzero(c:int(tree, F.b_has_qos)) then qos(c, tree) end
        if nonzero(c:int(tree, F.b_has_tft)) then tft(c, tree) end
    end
end

-- The AT relay's body is built by hand: channel index, text length, the text with its NUL,
-- padded to 4 bytes.
local function at_request(c, tree)
    c:int(tree, F.at_channel)
    local length = c:int(tree, F.at_length)
    if length == nil then return end
    local n = math.min(math.max(length, 0), c:left())
    if n < length then c:fail(tree, "the end of the AT text") end
    tree:add(F.at_text, c.tvb(c.off, n), n > 0 and c.tvb(c.off, n):string() or "")
    c.off = c.stop  -- NUL and padding
end

-- The daemon's AT answer: one word, then the text to the end of the payload.
local function at_response(c, tree)
    c:int(tree, F.at_status)
    local n = c:left()
    if n > 0 then tree:add(F.at_text, c.tvb(c.off, n), c.tvb(c.off, n):string()) end
    c.off = c.stop
end

local setup_labels = { "Radio technology", "Data profile", "APN", "User", "Password",
                       "Auth type", "Protocol", "Cid", "mIsValid" }
for i = 1, 9 do setup_labels[9 + i] = string.format("Handover / RAN value %d", i) end
local setup_tlv_labels = {}
for i, label in ipairs(setup_labels) do setup_tlv_labels[i] = label end
setup_tlv_labels[19] = "Serial"

local function nothing() end

local request_decoders = {
    [27] = counted_strings(setup_labels),
    [2157] = counted_strings(setup_tlv_labels),
    [41] = counted_strings({ "Cid", "Cause" }),
    [2124] = counted_strings({ "Cid", "Cause" }),
    [2078] = counted_strings({ "Bearer id", "Cause" }),
    [2080] = counted_strings({ "Cid", "Cause" }),
    [2081] = counted_strings({ "Cid" }),
    [2159] = function(c, tree)
        c:count(tree, F.count, "Values")
        c:str(tree, F.text, "Cid")
        c:int(tree, F.tlv_serial)
    end,
    [56] = nothing,
    [2158] = function(c, tree)
        c:count(tree, F.count, "Values")
        c:int(tree, F.tlv_serial)
    end,
    [111] = function(c, tree)
        c:str(tree, F.text, "APN")
        c:str(tree, F.text, "Protocol")
        c:int(tree, F.int, "Auth type")
        c:str(tree, F.text, "User")
        c:str(tree, F.text, "Password")
        c:str(tree, F.text, "Further text")
        c:int(tree, F.int, "Flag")
    end,
    [23] = ints({ "Values", "On" }),
    [2112] = ints({ "Values", "Handover status", "Handover result", "Cid", "Source RAN type",
                    "Target RAN type" }),
    [2125] = function(c, tree) c:str(tree, F.text, "PS registration state") end,
    [2127] = ints({ "Array length", "Items", "Item type", "Item length", "Interface id",
                    "Item type", "Item length", "MTU" }),
    [2077] = bearer_request({ F.b_ddc, F.b_interface, F.b_signaling }),
    [2079] = bearer_request({ F.b_cid }),
    [2106] = at_request,
    [2123] = at_request,
    [2126] = at_request,
}

local response_decoders = {
    [27] = data_call_list,
    [2077] = bearer_list,
    [2079] = bearer_list,
    [2081] = function(c, tree) c:str(tree, F.dc_pcscf) end,
    [56] = function(c, tree)
        local n = c:count(tree, F.count, "Causes")
        for _ = 1, n do c:int(tree, F.fail_cause) end
    end,
    [2106] = at_response,
    [2123] = at_response,
    [2126] = at_response,
}
-- Status-only answers: nothing is expected after the header.
for _, id in ipairs({ 23, 41, 111, 2078, 2080, 2112, 2124, 2125, 2127, 2157, 2158, 2159 }) do
    response_decoders[id] = nothing
end

local unsol_decoders = {
    [6002] = data_call_list,
    [3072] = data_call_list,
    [3030] = bearer_list,
    [3031] = bearer_list,
    [3032] = function(c, tree)
        local n = c:count(tree, F.count, "Bearers")
        for _ = 1, n do c:int(tree, F.b_cid) end
    end,
    [1009] = nothing,
}

local function decode_payload(decoder, tvb, offset, tree)
    local c = cursor(tvb, offset)
    if c:left() == 0 and decoder == nil then return end
    local t = tree:add(F.entry, c:here())
    t:set_text(string.format("Parcel (%d bytes)", c:left()))
    t:set_len(c:left())
    if decoder == nil then
        t:add_proto_expert_info(E.undecoded)
        return
    end
    decoder(c, t)
    c:finish(t)
end

---------------------------------------------------------------------------------------------
-- Requests and responses meet by serial: a response names the latest request with its serial
-- seen before it. Wireshark dissects in order on the first pass, later passes reuse the links.

-- Time since the request as an exact NSTime. pinfo.abs_ts is a double of some 1.8e9 seconds,
-- whose differences carry float noise in the microseconds (0.000015974 for 16 us); pinfo.rel_ts
-- (time since the first packet) is small enough that a difference rounds to the exact
-- nanosecond for any capture shorter than days. (Field extractors such as frame.time hold
-- nothing on tshark's first pass, where the links are made.)
local function elapsed(from_rel, to_rel)
    local ns = math.floor((to_rel - from_rel) * 1e9 + 0.5)
    return NSTime.new(math.floor(ns / 1e9), ns % 1000000000)
end

local open_requests = {}  -- serial -> { frame, time, id } of requests not answered yet
local request_of = {}     -- response frame -> { frame, time, id }
local response_of = {}    -- request frame -> { frame, time }

function zok.init()
    open_requests, request_of, response_of = {}, {}, {}
end

local function serial_tree(tree, tvb, offset)
    local item = tree:add_le(F.serial, tvb(offset, 4))
    item:add_le(F.serial_slot, tvb(offset, 4))
    item:add_le(F.serial_seq, tvb(offset, 4))
    item:add_le(F.serial_retry, tvb(offset, 4))
    return tvb(offset, 4):le_uint()
end

local function dissect_request(tvb, pinfo, tree)
    if tvb:len() < 20 then
        tree:add_proto_expert_info(E.short, "A request frame needs a 20-byte header")
        pinfo.cols.info = "short request frame"
        return
    end
    local header_size = tvb(4, 4):le_uint()
    local item = tree:add_le(F.header_size, tvb(4, 4))
    if header_size ~= 4 then
        item:add_proto_expert_info(E.header, "A request carries a 4-byte header (the SIM id)")
    end
    tree:add_le(F.sim_id, tvb(8, 4))
    local id = tvb(12, 4):le_uint()
    local id_item = tree:add_le(F.request, tvb(12, 4))
    if request_names[id] == nil then id_item:add_proto_expert_info(E.unknown) end
    local serial = serial_tree(tree, tvb, 16)
    pinfo.cols.info = string.format("%s req serial 0x%x", name_of(request_names, id, "REQUEST"),
                                    serial)

    if not pinfo.visited then
        open_requests[serial] = { frame = pinfo.number, time = pinfo.rel_ts, id = id }
    end
    local response = response_of[pinfo.number]
    if response then
        tree:add(F.response_in, tvb(0, 0), response.frame):set_generated()
    elseif pinfo.visited then
        -- Only a later pass knows that the whole capture holds no answer.
        tree:add_proto_expert_info(E.no_response)
    end
    decode_payload(request_decoders[id], tvb, 20, tree)
end

-- The feature header: mask words chained by bit 15, then the SIM id when bit 0 of the first
-- mask is set; further words are carried but not read.
local function feature_header(tvb, tree, size)
    local words = math.floor(size / 4)
    if size % 4 ~= 0 then
        tree:add_proto_expert_info(E.header, "Feature header not a whole number of words")
    end
    if words == 0 then return end
    local first = tvb(8, 4):le_uint()
    local mask = first
    tree:add_le(F.mask, tvb(8, 4))
    local w = 1
    while w < words and band(mask, 0x8000) ~= 0 do
        mask = tvb(8 + 4 * w, 4):le_uint()
        tree:add_le(F.mask, tvb(8 + 4 * w, 4))
        w = w + 1
    end
    if band(first, 1) ~= 0 then
        if w < words then
            tree:add_le(F.sim_id, tvb(8 + 4 * w, 4))
            w = w + 1
        else
            tree:add(F.sim_id, tvb(8, 0), 0):append_text(" (announced, not in the header)")
        end
    end
    for i = w, words - 1 do tree:add_le(F.feature_word, tvb(8 + 4 * i, 4)) end
end

local function dissect_response(tvb, pinfo, tree)
    local header_size = tvb(4, 4):le_uint()
    local item = tree:add_le(F.header_size, tvb(4, 4))
    if header_size > tvb:len() - 12 then
        item:add_proto_expert_info(E.header, "Header size beyond the frame")
        pinfo.cols.info = "broken response frame"
        return
    end
    feature_header(tvb, tree, header_size)
    local at = 8 + header_size
    local kind = tvb(at, 4):le_uint()
    local kind_item = tree:add_le(F.type, tvb(at, 4))
    if kind == 1 then
        if tvb:len() < at + 8 then
            tree:add_proto_expert_info(E.short, "An unsolicited frame needs its id")
            pinfo.cols.info = "short unsolicited frame"
            return
        end
        local id = tvb(at + 4, 4):le_uint()
        local id_item = tree:add_le(F.unsol, tvb(at + 4, 4))
        if unsol_names[id] == nil then id_item:add_proto_expert_info(E.unknown) end
        pinfo.cols.info = string.format("%s unsol", name_of(unsol_names, id, "UNSOL"))
        decode_payload(unsol_decoders[id], tvb, at + 8, tree)
        return
    end
    if kind ~= 0 then
        kind_item:add_proto_expert_info(E.type)
        pinfo.cols.info = string.format("unknown frame type %d", kind)
        return
    end
    if tvb:len() < at + 12 then
        tree:add_proto_expert_info(E.short, "A response needs its serial and result")
        pinfo.cols.info = "short response frame"
        return
    end
    local serial = serial_tree(tree, tvb, at + 4)
    local result = tvb(at + 8, 4):le_int()
    local result_item = tree:add_le(F.result, tvb(at + 8, 4))
    if result ~= 0 then result_item:add_proto_expert_info(E.failed) end

    local request = request_of[pinfo.number]
    if not pinfo.visited and request == nil then
        request = open_requests[serial]
        if request then
            open_requests[serial] = nil
            request_of[pinfo.number] = request
            response_of[request.frame] = { frame = pinfo.number }
        end
    end
    local name = "response"
    local decoder = nil
    if request then
        tree:add(F.request, tvb(0, 0), request.id):set_generated()
        tree:add(F.request_in, tvb(0, 0), request.frame):set_generated()
        tree:add(F.time, tvb(0, 0), elapsed(request.time, pinfo.rel_ts)):set_generated()
        name = name_of(request_names, request.id, "REQUEST")
        decoder = response_decoders[request.id]
    else
        tree:add_proto_expert_info(E.no_request)
    end
    pinfo.cols.info = string.format("%s resp serial 0x%x %s", name, serial,
                                    name_of(result_names, result, "ZOKRIL_E"))
    decode_payload(decoder, tvb, at + 12, tree)
end

-- Source and Destination columns: the two ends of the socket.
local function set_ends(pinfo, from_entity)
    pinfo.cols.src = from_entity and "entity" or "rild"
    pinfo.cols.dst = from_entity and "rild" or "entity"
end

local function dissect(tvb, pinfo, tree)
    local len = tvb:len()
    local to_daemon = nil
    if pinfo.p2p_dir == P2P_DIR_SENT then
        to_daemon = true
    elseif pinfo.p2p_dir == P2P_DIR_RECV then
        to_daemon = false
    end
    if len == 0 then
        local who = to_daemon == false and "daemon" or "entity"
        set_ends(pinfo, who == "entity")
        tree:add(F.close, tvb(0, 0), who):add_proto_expert_info(E.closed)
        pinfo.cols.info = "close by " .. who
        return
    end
    if len < 12 then
        tree:add_proto_expert_info(E.short, "Too short for a frame header")
        pinfo.cols.info = "short frame"
        return
    end
    local length = tvb(0, 4):uint()
    local length_item = tree:add(F.length, tvb(0, 4))
    if length + 4 ~= len then
        length_item:add_proto_expert_info(E.length, string.format(
            "Length word %d, but %d bytes follow it", length, len - 4))
    end
    if to_daemon == nil then
        -- Only a request has header size 4 followed by a known request id.
        to_daemon = len >= 20 and tvb(4, 4):le_uint() == 4 and
                        request_names[tvb(12, 4):le_uint()] ~= nil
        tree:add_proto_expert_info(E.direction)
    end
    tree:add(F.direction, tvb(0, 0), to_daemon and "entity to daemon" or "daemon to entity")
        :set_generated()
    set_ends(pinfo, to_daemon)
    if to_daemon then
        dissect_request(tvb, pinfo, tree)
    else
        dissect_response(tvb, pinfo, tree)
    end
end

function zok.dissector(tvb, pinfo, tree)
    pinfo.cols.protocol = "ZOK-RIL"
    local root = tree:add(zok, tvb())
    local ok, err = pcall(dissect, tvb, pinfo, root)
    if not ok then
        root:add_proto_expert_info(E.lua, "Dissector error: " .. tostring(err))
    end
    return tvb:len()
end

---------------------------------------------------------------------------------------------
-- Link types. LINKTYPE_USER0 (147) is what the tools write; a capture recorded by something
-- else under another user link type (148..162) is decoded by setting the preference
-- zokril.link_type (Edit > Preferences > Protocols > ZOKRIL, or tshark -o zokril.link_type:148).

local encaps = DissectorTable.get("wtap_encap")
encaps:add(wtap_encaps.USER0, zok)
local extra_encap = nil

zok.prefs.link_type = Pref.uint("User link type", 147,
                                "Also decode this LINKTYPE_USERn (147 to 162) as the RIL socket")

function zok.prefs_changed()
    local n = zok.prefs.link_type - 147
    local encap = n >= 1 and n <= 15 and wtap_encaps["USER" .. n] or nil
    if encap == extra_encap then return end
    if extra_encap then encaps:remove(extra_encap, zok) end
    extra_encap = encap
    if encap then encaps:add(encap, zok) end
end

---------------------------------------------------------------------------------------------
-- Response times per request name: tshark -q -z zokril,srt, or Statistics > ZOK RIL.

local srt_fields = {
    request = Field.new("zokril.request"),
    request_in = Field.new("zokril.request_in"),
    time = Field.new("zokril.time"),
    result = Field.new("zokril.result"),
}

local function srt_format(ns)
    return string.format("%d.%09d", math.floor(ns / 1e9), ns % 1000000000)
end

-- The table, as lines: one row per request name, sorted by name.
local function srt_report(rows, orphans)
    local names = {}
    for name in pairs(rows) do names[#names + 1] = name end
    table.sort(names)
    local rule = string.rep("=", 100)
    local out = { rule, "ZOK RIL response times per request (zokril,srt)",
                  string.format("%-45s %8s %8s %12s %12s %12s", "Request", "Requests", "Answered",
                                "Min (s)", "Max (s)", "Avg (s)") }
    for _, name in ipairs(names) do
        local r = rows[name]
        local min, max, avg = "-", "-", "-"
        if r.answered > 0 then
            min, max = srt_format(r.min), srt_format(r.max)
            avg = srt_format(math.floor(r.sum / r.answered + 0.5))
        end
        out[#out + 1] = string.format("%-45s %8d %8d %12s %12s %12s", name, r.requests,
                                      r.answered, min, max, avg)
    end
    out[#out + 1] = string.rep("-", 100)
    out[#out + 1] = string.format("Responses without a request: %d", orphans)
    out[#out + 1] = rule
    return out
end

-- A listener that collects the table; `show(lines)` is called with it at every draw.
local function srt_listener(show)
    local rows, orphans = {}, 0
    local tap = Listener.new("frame", "zokril")
    local function row(id)
        local name = name_of(request_names, id, "REQUEST")
        rows[name] = rows[name] or { requests = 0, answered = 0, sum = 0 }
        return rows[name]
    end
    function tap.packet()
        local request, time = srt_fields.request(), srt_fields.time()
        if request and time then
            local r = row(request.value)
            local ns = time.value.secs * 1000000000 + time.value.nsecs
            r.answered = r.answered + 1
            r.sum = r.sum + ns
            r.min = r.min and math.min(r.min, ns) or ns
            r.max = r.max and math.max(r.max, ns) or ns
        elseif request and not srt_fields.request_in() then
            local r = row(request.value)
            r.requests = r.requests + 1
        elseif srt_fields.result() then
            orphans = orphans + 1
        end
    end
    function tap.reset()
        rows, orphans = {}, 0
    end
    function tap.draw()
        show(srt_report(rows, orphans))
    end
    return tap
end

register_stat_cmd_arg("zokril,srt", function()
    srt_listener(function(lines) print(table.concat(lines, "\n")) end)
end)

if gui_enabled() then
    register_menu("ZOK RIL/Response times", function()
        local window = TextWindow.new("ZOK RIL response times")
        local tap = srt_listener(function(lines)
            window:clear()
            window:append(table.concat(lines, "\n") .. "\n")
        end)
        window:set_atclose(function() tap:remove() end)
        retap_packets()
    end, MENU_STAT_GENERIC)
end

-- Wireshark dissector of the transfer protocol: the frames between libtransfer and the
-- board FPGAs, MCUs and receiving cards on UDP.
--
-- Load it for one run:   tshark -X lua_script:transfer.lua -r capture.pcap
-- or for good:           cp transfer.lua ~/.local/lib/wireshark/plugins/
-- (installed as <prefix>/share/transfer/wireshark/transfer.lua).
--
-- Registration: the UDP port table, on two preferences (Edit > Preferences > Protocols >
-- TRANSFER, or -o transfer.ports:... / -o transfer.report_ports:...). "ports" are the
-- boards' request ports: a datagram sent to one from another port is a request, one sent
-- from one to another port a reply; between two such ports the labels tell (see
-- classify). "report_ports" are the report channels' ports: every frame there is a report.
-- The defaults are the ports of config/example_transfer.json and config/demo_transfer.json.
--
-- Every multi-byte field is little-endian. Each checksum is computed again and shown as
-- right or wrong; a wrong one, a wrong delimiter, a frame type other than 1 and a length
-- field that disagrees with the datagram are expert infos (filter: _ws.expert).

local proto = Proto("transfer", "Transfer protocol")

local DELIMITER = 0xBB55
local POLL_REGISTER = 0x02000200
local CARD_SUM_BIAS = 0x5555

local device_types = { [0] = "FPGA", [1] = "MCU", [2] = "Ethernet port" }
local body_types = { [0] = "address", [1] = "TLV", [2] = "receiving card" }
local frame_types = { [0] = "reserved", [1] = "slot" }
local op_codes = { [0] = "read", [1] = "write" }

local F = {
    kind = ProtoField.string("transfer.kind", "Frame kind"),
    delimiter = ProtoField.uint16("transfer.delimiter", "Delimiter", base.HEX),
    version = ProtoField.uint8("transfer.version", "Version"),
    priority = ProtoField.uint8("transfer.priority", "Priority"),
    check_type = ProtoField.uint8("transfer.check_type", "Check type"),
    frame_type = ProtoField.uint8("transfer.frame_type", "Frame type", base.DEC, frame_types),
    label = ProtoField.uint16("transfer.label", "Label"),
    length = ProtoField.uint16("transfer.length", "Length after the frame header"),
    param = ProtoField.uint8("transfer.param", "Parameter", base.HEX),
    ack = ProtoField.bool("transfer.param.ack", "Acknowledgement asked", 8, nil, 0x40),
    write = ProtoField.bool("transfer.param.write", "Write", 8, nil, 0x20),
    report = ProtoField.bool("transfer.param.report", "Report", 8, nil, 0x10),
    body = ProtoField.uint8("transfer.param.body", "Body type", base.DEC, body_types, 0x0F),
    device_type = ProtoField.uint8("transfer.device_type", "Device type", base.DEC, device_types),
    device_index = ProtoField.uint16("transfer.device_index", "Device index"),
    group = ProtoField.uint64("transfer.group", "Group", base.HEX),
    addr = ProtoField.uint32("transfer.addr", "Address", base.HEX),
    tag = ProtoField.uint32("transfer.tag", "Tag", base.HEX),
    err_code = ProtoField.int16("transfer.err_code", "Error code / read length"),
    data_len = ProtoField.uint16("transfer.data_len", "Data length"),
    data = ProtoField.bytes("transfer.data", "Data"),
    card_device_type = ProtoField.uint8("transfer.card.device_type", "Card device type"),
    card_port = ProtoField.uint8("transfer.card.port", "Ethernet port"),
    card_index = ProtoField.uint16("transfer.card.index", "Receiving card"),
    card_op = ProtoField.uint8("transfer.card.op", "Operation", base.DEC, op_codes),
    card_reserved = ProtoField.int8("transfer.card.reserved", "Reserved"),
    card_reg = ProtoField.uint32("transfer.card.reg", "Register", base.HEX),
    card_data_len = ProtoField.uint16("transfer.card.data_len", "Data length / read length"),
    card_checksum = ProtoField.uint16("transfer.card.checksum", "Card checksum", base.HEX),
    card_checksum_calc = ProtoField.uint16("transfer.card.checksum.computed",
                                           "Card checksum computed", base.HEX),
    card_checksum_status = ProtoField.string("transfer.card.checksum.status", "Card checksum"),
    checksum = ProtoField.uint16("transfer.checksum", "Checksum", base.HEX),
    checksum_calc = ProtoField.uint16("transfer.checksum.computed", "Checksum computed", base.HEX),
    checksum_status = ProtoField.string("transfer.checksum.status", "Checksum"),
    request_frame = ProtoField.framenum("transfer.request_frame", "Answers the frame"),
}
local fields = {}
for _, f in pairs(F) do fields[#fields + 1] = f end
proto.fields = fields

local E = {
    delimiter = ProtoExpert.new("transfer.delimiter.bad", "Delimiter is not 0xBB55",
                                expert.group.MALFORMED, expert.severity.ERROR),
    frame_type = ProtoExpert.new("transfer.frame_type.bad", "Frame type is not 1",
                                 expert.group.PROTOCOL, expert.severity.WARN),
    length = ProtoExpert.new("transfer.length.bad", "Length disagrees with the datagram",
                             expert.group.MALFORMED, expert.severity.ERROR),
    short = ProtoExpert.new("transfer.short", "Frame too short",
                            expert.group.MALFORMED, expert.severity.ERROR),
    body = ProtoExpert.new("transfer.body.bad", "Unknown body type",
                           expert.group.PROTOCOL, expert.severity.WARN),
    checksum = ProtoExpert.new("transfer.checksum.bad", "Checksum is wrong",
                               expert.group.CHECKSUM, expert.severity.ERROR),
}
proto.experts = { E.delimiter, E.frame_type, E.length, E.short, E.body, E.checksum }

proto.prefs.ports = Pref.range("Request ports", "6000,6002",
                               "UDP ports of the boards' request channels", 65535)
proto.prefs.report_ports = Pref.range("Report ports", "6001,6100",
                                      "UDP ports of the report channels", 65535)

-- Whether `port` lies in a range preference such as "6000,6002-6004".
local function in_range(text, port)
    for part in string.gmatch(text or "", "[^,%s]+") do
        local lo, hi = string.match(part, "^(%d+)%-(%d+)$")
        lo = tonumber(lo or part)
        hi = tonumber(hi or part)
        if lo and hi and port >= lo and port <= hi then return true end
    end
    return false
end

-- The 16-bit byte sum of `len` bytes from `offset`.
local function byte_sum(tvb, offset, len)
    if len <= 0 then return 0 end
    local bytes = tvb:bytes(offset, len)
    local sum = 0
    for i = 0, len - 1 do sum = sum + bytes:get_index(i) end
    return sum % 65536
end

-- A data length field and the data it announces, flagged when the frame is shorter.
local function add_data(tvb, tree, f_len, len_offset, data_offset, room)
    local stated = tvb(len_offset, 2):le_uint()
    local item = tree:add_le(f_len, tvb(len_offset, 2))
    if stated > room then
        item:add_proto_expert_info(E.length, string.format(
            "%d data bytes announced, room for %d", stated, room))
    end
    local n = math.min(stated, room)
    if n > 0 then tree:add(F.data, tvb(data_offset, n)) end
    return n
end

-- A stored checksum beside the computed one, marked right or wrong.
local function add_checksum(tvb, tree, offset, computed, f_value, f_calc, f_status)
    if offset + 2 > tvb:len() then
        tree:add_proto_expert_info(E.short, "Checksum missing")
        return true
    end
    local stored = tvb(offset, 2):le_uint()
    local item = tree:add_le(f_value, tvb(offset, 2))
    tree:add(f_calc, computed):set_generated()
    local right = stored == computed
    tree:add(f_status, right and "right" or "wrong"):set_generated()
    if not right then
        item:add_proto_expert_info(E.checksum, string.format(
            "Checksum is wrong: 0x%04x, computed 0x%04x", stored, computed))
    end
    return right
end

-- The checksum of the whole frame, in its last two bytes.
local function add_frame_checksum(tvb, tree, frame_len)
    return add_checksum(tvb, tree, frame_len - 2, byte_sum(tvb, 0, frame_len - 2), F.checksum,
                        F.checksum_calc, F.checksum_status)
end

-- Requests seen, by label and direction: "label from>to" gives the frame and whether it
-- was a poll. Kinds given, by frame number: the GUI dissects frames again, in any order.
local requests = {}
local kinds = {}

local function frame_header(tvb, tree)
    local delimiter = tvb(0, 2):le_uint()
    local item = tree:add_le(F.delimiter, tvb(0, 2))
    if delimiter ~= DELIMITER then
        item:add_proto_expert_info(E.delimiter, string.format("Delimiter 0x%04x, not 0xBB55",
                                                              delimiter))
    end
    tree:add(F.version, tvb(2, 1))
    tree:add(F.priority, tvb(3, 1))
    tree:add(F.check_type, tvb(4, 1))
    item = tree:add(F.frame_type, tvb(5, 1))
    if tvb(5, 1):uint() ~= 1 then item:add_proto_expert_info(E.frame_type) end
    tree:add_le(F.label, tvb(6, 2))
    item = tree:add_le(F.length, tvb(8, 2))
    local stated = tvb(8, 2):le_uint() + 10
    if stated ~= tvb:len() then
        item:add_proto_expert_info(E.length, string.format(
            "Frame length %d by the header, datagram of %d bytes", stated, tvb:len()))
    end
end

local function request_header(tvb, tree)
    local sub = tree:add(proto, tvb(10, 12), "Request header")
    local param = sub:add(F.param, tvb(10, 1))
    param:add(F.ack, tvb(10, 1))
    param:add(F.write, tvb(10, 1))
    param:add(F.report, tvb(10, 1))
    param:add(F.body, tvb(10, 1))
    sub:add(F.device_type, tvb(11, 1))
    sub:add_le(F.device_index, tvb(12, 2))
    sub:add_le(F.group, tvb(14, 8))
end

-- Address or TLV body (requests, replies and reports alike): address or tag, error code,
-- data length, data, then the checksum of everything before it.
local function address_body(tvb, tree, body, frame_len)
    if frame_len < 32 then
        tree:add_proto_expert_info(E.short)
        return "too short"
    end
    local sub = tree:add(proto, tvb(22, 8), body == 1 and "TLV body" or "Address body")
    sub:add_le(body == 1 and F.tag or F.addr, tvb(22, 4))
    sub:add_le(F.err_code, tvb(26, 2))
    add_data(tvb, sub, F.data_len, 28, 30, frame_len - 32)
    add_frame_checksum(tvb, tree, frame_len)
    return string.format("%s 0x%08x, %d data bytes", body == 1 and "tag" or "address",
                         tvb(22, 4):le_uint(), tvb(28, 2):le_uint())
end

-- Receiving-card request body: 12 bytes, the data of a write, the card checksum (byte sum
-- of body and data plus 0x5555) and the checksum of the whole frame.
local function card_request_body(tvb, tree, frame_len)
    if frame_len < 38 then
        tree:add_proto_expert_info(E.short)
        return "too short"
    end
    local sub = tree:add(proto, tvb(22, 12), "Receiving-card body")
    sub:add(F.card_device_type, tvb(22, 1))
    sub:add(F.card_port, tvb(23, 1))
    sub:add_le(F.card_index, tvb(24, 2))
    sub:add(F.card_op, tvb(26, 1))
    sub:add(F.card_reserved, tvb(27, 1))
    sub:add_le(F.card_reg, tvb(28, 4))
    -- A read names the count it wants in the field that gives a write its data count.
    local n = 0
    if tvb(10, 1):uint() % 64 >= 32 then
        n = add_data(tvb, sub, F.card_data_len, 32, 34, frame_len - 38)
    else
        sub:add_le(F.card_data_len, tvb(32, 2))
    end
    add_checksum(tvb, tree, 34 + n, (byte_sum(tvb, 22, 12 + n) + CARD_SUM_BIAS) % 65536,
                 F.card_checksum, F.card_checksum_calc, F.card_checksum_status)
    add_frame_checksum(tvb, tree, frame_len)
    return string.format("card %d behind port %d, register 0x%08x, %d bytes",
                         tvb(24, 2):le_uint(), tvb(23, 1):uint(), tvb(28, 4):le_uint(),
                         tvb(32, 2):le_uint())
end

-- Receiving-card reply body: a data length, the data, the checksum of the whole frame.
local function card_reply_body(tvb, tree, frame_len)
    if frame_len < 26 then
        tree:add_proto_expert_info(E.short)
        return "too short"
    end
    add_data(tvb, tree, F.data_len, 22, 24, frame_len - 26)
    add_frame_checksum(tvb, tree, frame_len)
    return string.format("port %d, %d data bytes", tvb(12, 2):le_uint(), tvb(22, 2):le_uint())
end

-- What a frame is: a report (report port or report bit); a reply when it comes from a
-- board's port to another port, or, where the ports do not tell (the library's channels
-- often use the board's port number on both ends), when it answers an earlier frame with
-- its label from the other end; else a request, and a poll when it is a receiving-card read
-- of the poll register. Returns the kind and, for a reply, the frame of its request.
local function classify(tvb, pinfo)
    local param = tvb(10, 1):uint()
    if in_range(proto.prefs.report_ports, pinfo.src_port) or
        in_range(proto.prefs.report_ports, pinfo.dst_port) or param % 32 >= 16 then
        return "report"
    end
    local label = tvb(6, 2):le_uint()
    local here = tostring(pinfo.src) .. ":" .. pinfo.src_port
    local there = tostring(pinfo.dst) .. ":" .. pinfo.dst_port
    local asked = requests[label .. " " .. there .. ">" .. here]
    local own = requests[label .. " " .. here .. ">" .. there]
    local to_board = in_range(proto.prefs.ports, pinfo.dst_port)
    local from_board = in_range(proto.prefs.ports, pinfo.src_port)
    local reply
    if to_board ~= from_board then
        reply = from_board
    else
        reply = asked ~= nil and (own == nil or own.frame < asked.frame)
    end
    if reply then
        if asked == nil then return "reply" end
        return asked.poll and "poll answer" or "reply", asked.frame
    end
    local poll = param % 16 == 2 and param % 64 < 32 and tvb:len() >= 34 and
                     tvb(28, 4):le_uint() == POLL_REGISTER
    requests[label .. " " .. here .. ">" .. there] = { frame = pinfo.number, poll = poll }
    return poll and "poll" or "request"
end

local function frame_kind(tvb, pinfo)
    local k = kinds[pinfo.number]
    if k == nil then
        local kind, request = classify(tvb, pinfo)
        k = { kind = kind, request = request }
        kinds[pinfo.number] = k
    end
    return k.kind, k.request
end

function proto.dissector(tvb, pinfo, root)
    pinfo.cols.protocol = "TRANSFER"
    local tree = root:add(proto, tvb())
    if tvb:len() < 22 then
        tree:add_proto_expert_info(E.short)
        pinfo.cols.info = "Frame too short"
        return
    end
    local kind, request = frame_kind(tvb, pinfo)
    local label = tvb(6, 2):le_uint()
    tree:add(F.kind, kind):set_generated()
    if request then tree:add(F.request_frame, request):set_generated() end

    frame_header(tvb, tree)
    request_header(tvb, tree)
    local frame_len = math.min(tvb(8, 2):le_uint() + 10, tvb:len())
    local body = tvb(10, 1):uint() % 16
    local what
    if body == 0 or body == 1 then
        what = address_body(tvb, tree, body, frame_len)
    elseif body == 2 and (kind == "request" or kind == "poll") then
        what = card_request_body(tvb, tree, frame_len)
    elseif body == 2 then
        what = card_reply_body(tvb, tree, frame_len)
    else
        tree:add_proto_expert_info(E.body, string.format("Unknown body type %d", body))
        what = string.format("body type %d", body)
    end
    local op = tvb(10, 1):uint() % 64 >= 32 and "write" or "read"
    local summary = string.format("%s, label %d, %s %s, %s", kind, label, op,
                                  body_types[body] or "?", what)
    pinfo.cols.info = summary
    tree:append_text(", " .. summary)
end

-- The ports registered now, so that a change of the preferences moves them.
local udp_table = DissectorTable.get("udp.port")
local registered = {}

local function register_ports()
    for _, r in ipairs(registered) do udp_table:remove(r, proto) end
    registered = {}
    for _, r in ipairs({ proto.prefs.ports, proto.prefs.report_ports }) do
        if r ~= nil and r ~= "" then
            udp_table:add(r, proto)
            registered[#registered + 1] = r
        end
    end
end

function proto.prefs_changed() register_ports() end

function proto.init()
    requests = {}
    kinds = {}
end

register_ports()

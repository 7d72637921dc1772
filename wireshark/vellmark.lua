-- Wireshark dissector for captures written by `vellmarkctl monitor --pcap FILE`.
--
-- Each packet is one frame of the Vellmark endpoint as it goes over the socket: its length
-- as a varint, then a Tarv.IPCFrame (kind, request number, and the envelope holding the
-- message identifier, the payload's type name and the payload). This script shows the
-- frame's header and hands the payload to Wireshark's protobuf dissector under its type,
-- VellmarkPB.<payload type>. That dissector reads the installed .proto files
-- (include/VellmarkClient/proto) and, for their imports, protobuf's own (/usr/include on
-- Debian, package libprotobuf-dev); both go in its search paths, as absolute paths:
--
--   tshark -X lua_script:/usr/local/share/VellmarkClient/wireshark/vellmark.lua \
--     -o 'uat:protobuf_search_paths:"/usr/local/include/VellmarkClient/proto","TRUE"' \
--     -o 'uat:protobuf_search_paths:"/usr/include","FALSE"' -r capture.pcapng -V
--
-- In Wireshark: this file in the personal Lua plugins folder (Help > About Wireshark >
-- Folders), the two folders in Edit > Preferences > Protocols > ProtoBuf > Protobuf search
-- paths (the first with "Load all files" ticked).
--
-- The captures use LINKTYPE_USER0 (147), whose packets Wireshark hands over untouched, so
-- the dissector claims it with one line and reads the frame from the first byte.
-- LINKTYPE_WIRESHARK_UPPER_PDU (252) would name the dissector in the file, at the cost of
-- tags before every frame, for files that no other dissector reads anyway.

local vellmark = Proto("vellmark", "Vellmark IPC frame")

local kinds = { [1] = "REQUEST", [2] = "RESPONSE", [3] = "NOTIFICATION", [4] = "ONE_WAY" }

-- VellmarkPB.MessageId (lan/VellmarkMessageId.proto); a unit test holds the two together.
local message_ids = {
    [0] = "VELLMARK_MESSAGE_NONE",
    [1] = "VELLMARK_MESSAGE_GET_SOURCES",
    [2] = "VELLMARK_MESSAGE_GET_PRESETS",
    [3] = "VELLMARK_MESSAGE_GET_PERSONS",
    [4] = "VELLMARK_MESSAGE_STORE_PRESETS",
    [5] = "VELLMARK_MESSAGE_GET_PRODUCT_SETTINGS",
    [6] = "VELLMARK_MESSAGE_GET_VOICE_ACCOUNTS",
    [7] = "VELLMARK_MESSAGE_PRESETS_UPDATE",
    [8] = "VELLMARK_MESSAGE_SOURCES_UPDATE",
    [9] = "VELLMARK_MESSAGE_PERSONS_UPDATE",
    [10] = "VELLMARK_MESSAGE_VOICE_ACCOUNTS_UPDATE",
    [11] = "VELLMARK_MESSAGE_PRODUCT_SETTINGS_UPDATE",
    [12] = "VELLMARK_MESSAGE_ACCOUNT_ASSOCIATED_UPDATE",
    [13] = "VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED",
    [14] = "VELLMARK_MESSAGE_RESERVED_14",
    [15] = "VELLMARK_MESSAGE_GVA_CREATE",
    [16] = "VELLMARK_MESSAGE_RESERVED_16",
    [17] = "VELLMARK_MESSAGE_GVA_DELETE",
    [18] = "VELLMARK_MESSAGE_RESERVED_18",
    [19] = "VELLMARK_MESSAGE_GVA_CREATE_ERROR",
    [20] = "VELLMARK_MESSAGE_GVA_DELETE_ERROR",
    [21] = "VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID",
    [22] = "VELLMARK_MESSAGE_GVA_UPDATE_ERROR",
    [23] = "VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT",
    [24] = "VELLMARK_MESSAGE_DELETE_SERVICE_ACCOUNT",
    [25] = "VELLMARK_MESSAGE_RESERVED_25",
    [26] = "VELLMARK_MESSAGE_RESERVED_26",
    [27] = "VELLMARK_MESSAGE_UPDATE_SERVICE_ACCOUNT",
    [28] = "VELLMARK_MESSAGE_RESERVED_28",
    [29] = "VELLMARK_MESSAGE_MSP_HOST_ACCOUNTS_UPDATE",
    [30] = "VELLMARK_MESSAGE_GET_MSP_HOST_ACCOUNTS",
    [31] = "VELLMARK_MESSAGE_GET_GROUPS",
    [32] = "VELLMARK_MESSAGE_GROUPS_UPDATE",
}

local f = vellmark.fields
f.length = ProtoField.uint32("vellmark.length", "Frame length")
f.kind = ProtoField.uint32("vellmark.kind", "Kind", base.DEC, kinds)
f.request_number = ProtoField.uint64("vellmark.request_number", "Request number")
f.envelope = ProtoField.bytes("vellmark.envelope", "Envelope")
f.message_id = ProtoField.uint32("vellmark.message_id", "Message identifier", base.DEC, message_ids)
f.payload_type = ProtoField.string("vellmark.payload_type", "Payload type")
f.payload = ProtoField.bytes("vellmark.payload", "Payload")
f.session = ProtoField.string("vellmark.session", "Connection")

local malformed = ProtoExpert.new("vellmark.malformed", "Malformed Vellmark frame",
                                  expert.group.MALFORMED, expert.severity.ERROR)
vellmark.experts = { malformed }

-- The packet comment's field; a Wireshark that names it otherwise goes without sessions.
local has_comments, comment_field = pcall(Field.new, "frame.comment")
local protobuf = Dissector.get("protobuf")

-- The varint at `offset`, before `limit`: its value (UInt64) and its length, or nil.
local function varint(tvb, offset, limit)
    local value = UInt64(0)
    for i = 0, 9 do
        if offset + i >= limit then return nil end
        local byte = tvb(offset + i, 1):uint()
        value = value:bor(UInt64(byte % 128):lshift(7 * i))  -- no bit library: any Lua
        if byte < 0x80 then return value, i + 1 end
    end
    return nil
end

-- Calls visit(number, offset, length, value) for each field of the protobuf message in
-- [offset, limit); `value` is the varint's value for varint fields. False when it does not
-- parse.
local function fields(tvb, offset, limit, visit)
    while offset < limit do
        local tag, n = varint(tvb, offset, limit)
        if not tag then return false end
        local number = tag:rshift(3):tonumber()
        local wire = tag:band(7):tonumber()
        offset = offset + n
        if wire == 0 then
            local value, size = varint(tvb, offset, limit)
            if not value then return false end
            visit(number, offset, size, value)
            offset = offset + size
        elseif wire == 2 then
            local length, size = varint(tvb, offset, limit)
            if not length or offset + size + length:tonumber() > limit then return false end
            visit(number, offset + size, length:tonumber(), nil)
            offset = offset + size + length:tonumber()
        elseif wire == 1 or wire == 5 then
            offset = offset + (wire == 1 and 8 or 4)
            if offset > limit then return false end
        else
            return false
        end
    end
    return true
end

function vellmark.dissector(tvb, pinfo, tree)
    pinfo.cols.protocol = "Vellmark"
    local root = tree:add(vellmark, tvb())
    local total = tvb:len()
    local length, size = varint(tvb, 0, total)
    if not length or size + length:tonumber() > total then
        root:add_proto_expert_info(malformed)
        pinfo.cols.info = "Malformed frame"
        return
    end
    root:add(f.length, tvb(0, size), length:tonumber())
    local frame_end = size + length:tonumber()

    local kind, number, id, type_name, payload
    local ok = fields(tvb, size, frame_end, function(field, offset, n, value)
        if field == 1 and value then
            kind = value:tonumber()
            root:add(f.kind, tvb(offset, n), kind)
        elseif field == 2 and value then
            number = value
            root:add(f.request_number, tvb(offset, n), value)
        elseif field == 3 and not value then
            local envelope = root:add(f.envelope, tvb(offset, n))
            local envelope_ok = fields(tvb, offset, offset + n, function(inner, at, m, v)
                if inner == 1 and not v then
                    type_name = tvb(at, m):string()
                    envelope:add(f.payload_type, tvb(at, m))
                elseif inner == 2 and not v and m == 0 then
                    envelope:add(f.payload, tvb(at, 0)):set_text("Payload: (empty)")
                elseif inner == 2 and not v then
                    payload = tvb(at, m)
                    envelope:add(f.payload, payload)
                elseif inner == 3 and v then
                    id = v:tonumber()  -- a repeated identifier: the last one counts
                    envelope:add(f.message_id, tvb(at, m), id)
                end
            end)
            if not envelope_ok then envelope:add_proto_expert_info(malformed) end
        end
    end)
    if not ok then
        root:add_proto_expert_info(malformed)
        pinfo.cols.info = "Malformed frame"
        return
    end

    -- vellmarkctl notes the connection ("session 3") in each packet's comment.
    local comment = has_comments and comment_field()
    if comment then
        local session = tostring(comment.value)
        root:add(f.session, session):set_generated()
        local inbound = pinfo.p2p_dir == P2P_DIR_RECV
        pinfo.cols.src = inbound and session or "vellmarkd"
        pinfo.cols.dst = inbound and "vellmarkd" or session
    end

    if payload and type_name and type_name ~= "" and protobuf then
        pinfo.private["pb_msg_type"] = "message,VellmarkPB." .. type_name
        pcall(Dissector.call, protobuf, payload:tvb(), pinfo, tree)
    end

    local info = (kinds[kind] or "?")
    if number then info = info .. " #" .. tostring(number) end
    info = info .. " " .. (message_ids[id] or (id and tostring(id)) or "(no identifier)")
    if type_name and type_name ~= "" then info = info .. " (" .. type_name .. ")" end
    pinfo.cols.protocol = "Vellmark"
    pinfo.cols.info = info
    root:append_text(", " .. info)
end

DissectorTable.get("wtap_encap"):add(wtap_encaps.USER0, vellmark)

-- Wireshark dissector of VPCA, the printer's device-control protocol. docs/vpca.md describes the protocol and how to
-- load this file. Tried with tshark 4.0 and 4.4; as root, the latter loads no script.
--
-- A TCP connection on any port counts as VPCA when its first bytes are magic and version; others can be told to with
-- "Decode As". A frame that is split over segments is put together by its length field. The answer with a data block
-- reaches to the end of what the device sends, so it is shown at the end of the connection.

local vpca = Proto("vpca", "VPCA printer control")

vpca.prefs.to_the_end = Pref.bool("Data blocks reach to the end of the connection", true,
    "Without it, they end where the length field says: for captures without the end of the connection")

local HEADER = 20
local MAGIC, VERSION = 0xCDCA, 0x10
local READ_DATA_BLOCK, READ_ATTRIBUTES = 0x31, 0x66
local RESULT_PRESENT, OPTION_PRESENT = 0x01, 0x08
-- desegment_len of the TCP dissector for "all until FIN".
local UNTIL_FIN = 0x0FFFFFFE

local UNKNOWN_OPERATIONS = {}
for _, code in ipairs {45, 47, 52, 61, 62, 65, 66, 67, 75, 89, 90, 91, 99, 100} do UNKNOWN_OPERATIONS[code] = true end
local operations = {}
for code = 1, 129 do
    if not UNKNOWN_OPERATIONS[code] then operations[code] = "Operation " .. code end
end
operations[READ_DATA_BLOCK] = "Read data block"
operations[READ_ATTRIBUTES] = "Read attributes"

local results = {[0] = "Refused", [1] = "Success", [29] = "Refused"}
-- With these an answer of every operation has a body.
local BODY_FOLLOWS = {[1] = true, [29] = true, [33] = true, [34] = true}

local field = {
    magic = ProtoField.uint16("vpca.magic", "Magic", base.HEX),
    version = ProtoField.uint8("vpca.version", "Version", base.HEX),
    flags = ProtoField.uint8("vpca.flags", "Flags", base.HEX),
    result_present = ProtoField.bool("vpca.flags.result", "Result code present", 8, nil, RESULT_PRESENT),
    option_present = ProtoField.bool("vpca.flags.option", "Option byte present", 8, nil, OPTION_PRESENT),
    operation = ProtoField.uint16("vpca.operation", "Operation", base.DEC_HEX, operations),
    sequence = ProtoField.uint16("vpca.sequence", "Sequence number"),
    length = ProtoField.uint16("vpca.length", "Body length"),
    value1 = ProtoField.uint32("vpca.value1", "Value 1", base.HEX),
    value2 = ProtoField.uint32("vpca.value2", "Value 2", base.HEX),
    result = ProtoField.uint16("vpca.result", "Result code", base.DEC, results),
    option = ProtoField.uint8("vpca.option", "Option byte", base.HEX),
    body = ProtoField.bytes("vpca.body", "Body"),
    block_id = ProtoField.uint32("vpca.block.id", "Data id", base.DEC_HEX),
    block_data = ProtoField.bytes("vpca.block.data", "Data"),
    block_size = ProtoField.uint32("vpca.block.size", "Bytes of data"),
    word = ProtoField.uint16("vpca.request.word", "First word", base.HEX),
    address_kind = ProtoField.uint8("vpca.request.address_kind", "Address kind"),
    address_length = ProtoField.uint8("vpca.request.address_length", "Address length"),
    address = ProtoField.bytes("vpca.request.address", "Address"),
    id32 = ProtoField.uint32("vpca.request.id32", "32-bit id", base.DEC_HEX),
    id16 = ProtoField.uint16("vpca.request.id16", "Attribute id"),
    count = ProtoField.uint16("vpca.count", "Count"),
    attribute_id = ProtoField.uint16("vpca.attribute.id", "Attribute id"),
    attribute_length = ProtoField.uint8("vpca.attribute.length", "Length of the value"),
    value = ProtoField.bytes("vpca.attribute.value", "Value"),
    value_address = ProtoField.ipv4("vpca.attribute.address", "Address"),
    value_text = ProtoField.string("vpca.attribute.text", "Text"),
    value_number = ProtoField.uint32("vpca.attribute.number", "Number", base.DEC_HEX),
    garbage = ProtoField.bytes("vpca.garbage", "Bytes that are no frame"),
}
local fields = {}
for _, one in pairs(field) do fields[#fields + 1] = one end
vpca.fields = fields

local function malformed(name, text)
    return ProtoExpert.new("vpca." .. name, text, expert.group.MALFORMED, expert.severity.ERROR)
end
local bad = {
    short = malformed("short", "The connection ended within a frame"),
    length = malformed("wrong_length", "The length does not fit"),
    version = malformed("unknown_version", "Unknown protocol version"),
    garbage = malformed("not_a_frame", "Not a VPCA frame"),
    operation = ProtoExpert.new("vpca.unknown_operation", "Unknown operation", expert.group.UNDECODED,
        expert.severity.WARN),
    refused = ProtoExpert.new("vpca.refused", "Refused by the printer", expert.group.RESPONSE_CODE,
        expert.severity.NOTE),
}
local experts = {}
for _, one in pairs(bad) do experts[#experts + 1] = one end
vpca.experts = experts

-- Attribute values with a known layout: how many bytes the value at `at` takes, nil when the body is too short for it,
-- and how it is shown.
local function fixed(size)
    return {
        size = function() return size end,
        show = function(tree, value) tree:add(field.value, value) end,
    }
end
local function list_of(size, show)
    return {
        size = function(body, at) return at < body:len() and 1 + size * body(at, 1):uint() or nil end,
        show = function(tree, value)
            tree:add(field.count, value(0, 1))
            for at = 1, value:len() - 1, size do show(tree, value(at, size)) end
        end,
    }
end
local addresses = list_of(4, function(tree, element) tree:add(field.value_address, element) end)
local numbered_addresses = list_of(8, function(tree, element)
    tree:add(field.value_address, element(0, 4))
    tree:add(field.value_number, element(4, 4))
end)
local record = {
    size = function(body, at) return at + 4 < body:len() and 18 + body(at + 4, 1):uint() or nil end,
    show = function(tree, value)
        local text = value(4, 1):uint()
        tree:add(field.value_address, value(0, 4))
        if text > 0 then tree:add(field.value_text, value(5, text)) end
        local at = 5 + text
        for _, width in ipairs {2, 2, 4, 4, 1} do
            tree:add(field.value_number, value(at, width))
            at = at + width
        end
    end,
}
local layouts = {[180] = fixed(8), [2405] = fixed(28), [6012] = numbered_addresses, [6016] = numbered_addresses}
for _, id in ipairs {144, 146, 199, 261, 266, 300, 1080} do layouts[id] = addresses end
for _, id in ipairs {2112, 2173, 2174} do layouts[id] = record end

-- The attribute at `at` of the list; returns where the next one begins, nil when that cannot be told.
local function show_attribute(tree, body, at)
    local left = body:len() - at
    if left < 3 then
        tree:add_proto_expert_info(bad.length, "The list ends within an attribute")
        return nil
    end
    local id, length = body(at, 2):uint(), body(at + 2, 1):uint()
    local layout = layouts[id]
    local size = length
    local fits = true
    if layout then
        size = layout.size(body, at + 3)
        fits = size ~= nil and size % 256 == length
    end
    local branch = tree:add(body(at), "Attribute " .. id)
    branch:add(field.attribute_id, body(at, 2))
    branch:add(field.attribute_length, body(at + 2, 1))
    if not fits then
        branch:add_proto_expert_info(bad.length, "The length is not that of the value's layout")
        return nil
    end
    if at + 3 + size > body:len() then
        branch:add_proto_expert_info(bad.length, "The value runs over the end of the list")
        return nil
    end
    branch:set_len(3 + size)
    if size > 0 then
        local show = layout and layout.show or fixed().show
        show(branch, body(at + 3, size))
    end
    return at + 3 + size
end

local function show_attribute_list(tree, body)
    if body:len() < 1 then
        tree:add_proto_expert_info(bad.length, "An answer without a list")
        return ""
    end
    local count, at = body(0, 1):uint(), 1
    tree:add(field.count, body(0, 1))
    for _ = 1, count do
        at = show_attribute(tree, body, at)
        if not at then break end
    end
    return count == 1 and ", 1 attribute" or ", " .. count .. " attributes"
end

local function show_attribute_request(tree, body)
    local at = 0
    local function take(count, one)
        if not at or at + count > body:len() then
            at = nil
            return nil
        end
        at = at + count
        return count > 0 and tree:add(one, body(at - count, count)) and body(at - count, count) or nil
    end
    local function take_ids(width, one)
        local count = take(2, field.count)
        local ids = {}
        for _ = 1, count and count:uint() or 0 do
            local id = take(width, one)
            if not id then break end
            ids[#ids + 1] = id:uint()
        end
        return ids
    end
    take(2, field.word)
    take(1, field.address_kind)
    local length = take(1, field.address_length)
    take(length and length:uint() or 0, field.address)
    take_ids(4, field.id32)
    local ids = take_ids(2, field.id16)
    if at ~= body:len() then tree:add_proto_expert_info(bad.length, "The body is not as long as its counts say") end
    return ", " .. table.concat(ids, " ")
end

local function show_block_request(tree, body)
    if body:len() ~= 4 then
        tree:add_proto_expert_info(bad.length, "A data id has four bytes")
        return ""
    end
    tree:add(field.block_id, body)
    return string.format(", id 0x%X", body:uint())
end

local function show_block(tree, body)
    if body:len() < 4 then
        tree:add_proto_expert_info(bad.length, "An answer without a data id")
        return ""
    end
    tree:add(field.block_id, body(0, 4))
    if body:len() > 4 then tree:add(field.block_data, body(4)) end
    tree:add(field.block_size, body:len() - 4):set_generated()
    return string.format(", id 0x%X, %d bytes", body(0, 4):uint(), body:len() - 4)
end

local bodies = {
    [READ_DATA_BLOCK] = {request = show_block_request, answer = show_block},
    [READ_ATTRIBUTES] = {request = show_attribute_request, answer = show_attribute_list},
}

local function is_answer(frame) return bit.band(frame(3, 1):uint(), RESULT_PRESENT) ~= 0 end

local function has_body(frame) return not is_answer(frame) or BODY_FOLLOWS[frame(18, 2):uint()] == true end

local function reaches_to_the_end(frame)
    local operation, flags = frame(4, 2):uint(), frame(3, 1):uint()
    return operation == READ_DATA_BLOCK and is_answer(frame) and has_body(frame) or operation == 26 and flags == 1
end

local function show_frame(frame, pinfo, root)
    local tree = root:add(vpca, frame)
    local operation, flags = frame(4, 2):uint(), frame(3, 1):uint()
    local answer = is_answer(frame)
    local summary = (operations[operation] or "Unknown operation " .. operation) .. (answer and " answer" or " request")

    tree:add(field.magic, frame(0, 2))
    tree:add(field.version, frame(2, 1))
    local bits = tree:add(field.flags, frame(3, 1))
    bits:add(field.result_present, frame(3, 1))
    bits:add(field.option_present, frame(3, 1))
    local code = tree:add(field.operation, frame(4, 2))
    if not operations[operation] then code:add_proto_expert_info(bad.operation) end
    tree:add(field.sequence, frame(6, 2))
    tree:add(field.length, frame(8, 2))
    tree:add(field.value1, frame(10, 4))
    tree:add(field.value2, frame(14, 4))
    if answer then
        local status = frame(18, 2):uint()
        local result = tree:add(field.result, frame(18, 2))
        if status ~= 1 then result:add_proto_expert_info(bad.refused) end
        summary = summary .. ", status " .. status
    elseif bit.band(flags, OPTION_PRESENT) ~= 0 then
        tree:add(field.option, frame(18, 1))
    end

    local known = has_body(frame) and bodies[operation]
    if known then
        local show = answer and known.answer or known.request
        -- A view of its own, so that offsets begin at the body; Wireshark has no empty ranges.
        local body = frame:len() > HEADER and frame(HEADER) or ByteArray.new():tvb("no body")
        summary = summary .. show(tree, body, pinfo)
    elseif frame:len() > HEADER then
        tree:add(field.body, frame(HEADER))
    end
    tree:append_text(": " .. summary)
    pinfo.cols.protocol = "VPCA"
    pinfo.cols.info:append(" " .. summary)
end

local tcp_stream, tcp_fin, tcp_reset = Field.new("tcp.stream"), Field.new("tcp.flags.fin"), Field.new("tcp.flags.reset")
-- By connection and direction: how many bytes wait for the rest of their frame. By packet: how many waited for ever.
local waiting, given_up = {}, {}
function vpca.init() waiting, given_up = {}, {} end

local function direction(pinfo) return tostring(tcp_stream()) .. ":" .. pinfo.src_port end

local function ends_here() return tcp_fin() ~= nil and tcp_fin().value end

-- The bytes of the frame at `offset`; without a number, how many it takes to know more.
local function frame_size(tvb, offset)
    local left = tvb:len() - offset
    if left < HEADER then return nil, HEADER - left end
    local frame = tvb(offset)
    local size = HEADER + frame(8, 2):uint()
    if vpca.prefs.to_the_end and reaches_to_the_end(frame) then
        if not ends_here() then return nil, UNTIL_FIN end
        -- Another answer right where the length field says the next one begins: the field tells the truth.
        local another = left >= size + HEADER and frame(size, 2):uint() == MAGIC
        return another and frame(size + 2, 1):uint() == VERSION and size or left
    end
    if left < size then return nil, size - left end
    return size
end

function vpca.dissector(tvb, pinfo, root)
    pinfo.cols.info = ""
    local offset = 0
    waiting[direction(pinfo)] = nil
    while offset < tvb:len() do
        local left = tvb:len() - offset
        if (left >= 2 and tvb(offset, 2):uint() or tvb(offset, 1):uint() * 256 + 0xCA) ~= MAGIC then
            root:add(vpca, tvb(offset)):add(field.garbage, tvb(offset)):add_proto_expert_info(bad.garbage)
            pinfo.cols.info:append(" Not a frame")
            return tvb:len()
        end
        if left >= 3 and tvb(offset + 2, 1):uint() ~= VERSION then
            local tree = root:add(vpca, tvb(offset))
            tree:add(field.version, tvb(offset + 2, 1)):add_proto_expert_info(bad.version)
            pinfo.cols.info:append(" Unknown version")
            return tvb:len()
        end
        local size, missing = frame_size(tvb, offset)
        if not size then
            pinfo.desegment_offset = offset
            pinfo.desegment_len = missing
            waiting[direction(pinfo)] = left
            return tvb:len()
        end
        show_frame(tvb(offset, size), pinfo, root)
        offset = offset + size
    end
    return tvb:len()
end

vpca:register_heuristic("tcp", function(tvb, pinfo, root)
    if tvb:len() < 3 or tvb(0, 2):uint() ~= MAGIC or tvb(2, 1):uint() ~= VERSION then return false end
    pinfo.conversation = vpca
    vpca.dissector(tvb, pinfo, root)
    return true
end)
DissectorTable.get("tcp.port"):add_for_decode_as(vpca)

-- The TCP dissector drops a frame whose rest never comes: the packet that ends the connection says so.
local ending = Proto("vpca_end", "End of a VPCA connection")
function ending.dissector(_, pinfo, root)
    if tcp_stream() == nil then return end
    local own = direction(pinfo)
    if not pinfo.visited and (tcp_fin().value or tcp_reset().value) then
        given_up[pinfo.number] = waiting[own]
        waiting[own] = nil
    end
    local bytes = given_up[pinfo.number]
    if bytes then
        root:add(vpca):add_proto_expert_info(bad.short, "The connection ended after " .. bytes .. " bytes of a frame")
        pinfo.cols.info:append(" Incomplete VPCA frame")
    end
end
register_postdissector(ending)

-- Shows what travels between a computer and a Trovik device. For Wireshark 4 (Lua 5.2); docs/PROTOCOL.md explains the bytes.
--
-- Once: copy this file to the folder "Personal Lua Plugins" (Help, About Wireshark, Folders), or start with
--     wireshark -X lua_script:tools/wireshark/trovik.lua capture.pcapng
-- A capture is made from usbmon before the device is plugged in: its descriptors tell which packets are its own. Without them,
-- choose a packet and Decode As, "USB product", or give the device's address in the preferences.

local trovik = Proto("trovik", "Trovik device protocol")

local kProduct, kHeader, kReadSize = 3, 12, 4096
local kUsbLayer, kApplicationLayer = 0, 20

trovik.prefs.vendor = Pref.uint("USB vendor id", 0x1209, "The maker's, in decimal; the product id is " .. kProduct)

local layers = { [kUsbLayer] = "USB protocol", [kApplicationLayer] = "application" }
local usbIds = { [2] = "data available", [5] = "start session", [6] = "session started", [16] = "largest packet?", [17] = "largest packet" }
local ids = {
    [10] = "command", [12] = "transfer complete", [14] = "time", [28] = "data wanted unasked", [38] = "unit id",
    [47] = "time follows", [51] = "position, velocity, time", [113] = "hold in boot loader", [248] = "extended product data",
    [253] = "protocol list", [254] = "product data?", [255] = "product data", [525] = "unit name", [526] = "unit name?",
    [980] = "region size?", [981] = "region size", [1500] = "resume boot", [1523] = "disconnect time-out",
}
local commands = {
    [5] = "get time", [14] = "get unit id", [39] = "erase the settings store", [63] = "get region information",
    [151] = "get product inventory", [174] = "reboot", [644] = "get first-fix data", [684] = "keep alive",
    [685] = "get disconnect time-out",
}
-- What asks for which answers: by layer and packet id, or by the number in a command. Each answer is awaited once a question;
-- one that nobody awaits is pointed out.
local answers = {
    ["0.5"] = { "0.6" }, ["0.16"] = { "0.17" },
    ["20.113"] = { "20.113" }, ["20.254"] = { "20.255", "20.253", "20.248" }, ["20.526"] = { "20.525" }, ["20.980"] = { "20.981" },
    ["command 5"] = { "20.14" }, ["command 14"] = { "20.38" }, ["command 685"] = { "20.1523" },
}
local isAnswer = {}
for _, list in pairs(answers) do
    for _, answer in ipairs(list) do isAnswer[answer] = true end
end
local tags = { P = "physical", L = "link", A = "application protocol", D = "data type" }

local f = {
    layer = ProtoField.uint8("trovik.layer", "Layer", base.DEC, layers),
    usbId = ProtoField.uint16("trovik.usb.id", "Packet id", base.DEC, usbIds),
    id = ProtoField.uint16("trovik.id", "Packet id", base.DEC, ids),
    size = ProtoField.uint32("trovik.size", "Data size", base.DEC),
    reserved = ProtoField.bytes("trovik.reserved", "Reserved"),
    data = ProtoField.bytes("trovik.data", "Data"),
    command = ProtoField.uint16("trovik.command", "Command", base.DEC, commands),
    unit = ProtoField.uint32("trovik.unit_id", "Unit id", base.DEC),
    largest = ProtoField.uint32("trovik.largest", "Largest packet", base.DEC),
    product = ProtoField.uint16("trovik.product.id", "Product id", base.DEC),
    version = ProtoField.int16("trovik.product.version", "Software version", base.DEC),
    text = ProtoField.string("trovik.text", "Text"),
    protocol = ProtoField.string("trovik.protocol", "Protocol"),
    requests = ProtoField.uint16("trovik.requests", "Wanted unasked", base.HEX),
    month = ProtoField.uint8("trovik.time.month", "Month"),
    day = ProtoField.uint8("trovik.time.day", "Day"),
    year = ProtoField.uint16("trovik.time.year", "Year"),
    hour = ProtoField.uint16("trovik.time.hour", "Hour"),
    minute = ProtoField.uint8("trovik.time.minute", "Minute"),
    second = ProtoField.uint8("trovik.time.second", "Second"),
    region = ProtoField.uint8("trovik.region", "Region", base.DEC),
    regionSize = ProtoField.int64("trovik.region.size", "Size of the region", base.DEC),
    status = ProtoField.uint8("trovik.region.status", "Status", base.DEC),
    timeout = ProtoField.uint32("trovik.disconnect_timeout", "Disconnect time-out", base.DEC),
    fragment = ProtoField.bytes("trovik.fragment", "Part of a packet"),
}
trovik.fields = f

local e = {
    short = ProtoExpert.new("trovik.expert.short", "Shorter than a header", expert.group.MALFORMED, expert.severity.ERROR),
    layer = ProtoExpert.new("trovik.expert.layer", "Neither of the two layers", expert.group.MALFORMED, expert.severity.ERROR),
    size = ProtoExpert.new("trovik.expert.size", "Data size is not what follows the header", expert.group.MALFORMED, expert.severity.ERROR),
    payload = ProtoExpert.new("trovik.expert.payload", "Too short for its fields", expert.group.MALFORMED, expert.severity.ERROR),
    empty = ProtoExpert.new("trovik.expert.missing_empty", "The packet before filled its last transfer, and no empty transfer followed",
        expert.group.SEQUENCE, expert.severity.WARN),
    unasked = ProtoExpert.new("trovik.expert.unasked", "An answer that nobody asked for", expert.group.SEQUENCE, expert.severity.WARN),
    unknown = ProtoExpert.new("trovik.expert.unknown", "Unknown packet id", expert.group.UNDECODED, expert.severity.NOTE),
}
trovik.experts = { e.short, e.layer, e.size, e.payload, e.empty, e.unasked, e.unknown }

local fBus, fAddress = Field.new("usb.bus_id"), Field.new("usb.device_address")
local fEndpoint, fUrbType = Field.new("usb.endpoint_address"), Field.new("usb.urb_type")
local fUrbLength, fStatus = Field.new("usb.urb_len"), Field.new("usb.urb_status")
local fDescriptorEndpoint, fDescriptorSize = Field.new("usb.bEndpointAddress"), Field.new("usb.wMaxPacketSize")

-- What one pass over the capture has learnt, by device; what it means for a frame is kept by the frame's number, since
-- Wireshark dissects frames again and in any order.
local devices, frames = {}, {}

function trovik.init()
    devices, frames = {}, {}
end

local function device()
    local key = fBus().value .. "." .. fAddress().value
    devices[key] = devices[key] or { sizes = {}, pipes = {}, awaited = {} }
    return devices[key]
end

local function pipe(of, endpoint)
    of.pipes[endpoint] = of.pipes[endpoint] or { gathered = nil, full = false }
    return of.pipes[endpoint]
end

-- First pass only: gathers what a packet is made of, and compares it with what went before.
local function learn(tvb, endpoint)
    local of = device()
    local way = pipe(of, endpoint)
    local told = { missingEmpty = way.full, bytes = tvb:bytes() }
    local isFromDevice = endpoint >= 0x80
    if way.gathered then
        told.bytes = way.gathered .. told.bytes
        told.missingEmpty = false
    end
    way.gathered, way.full = nil, false
    if isFromDevice and tvb:len() == kReadSize then
        way.gathered, told.isFragment = told.bytes, true
        return told
    end
    local packetSize = of.sizes[endpoint]
    way.full = not isFromDevice and packetSize ~= nil and tvb:len() % packetSize == 0

    if told.bytes:len() < kHeader then return told end
    local bytes = told.bytes
    local packet = bytes:get_index(0) .. "." .. bytes:get_index(4) + 256 * bytes:get_index(5)
    if isFromDevice then
        told.isUnasked = isAnswer[packet] and not of.awaited[packet]
        of.awaited[packet] = nil
    else
        if packet == "20.10" and bytes:len() == kHeader + 2 then
            packet = "command " .. bytes:get_index(12) + 256 * bytes:get_index(13)
        end
        for _, answer in ipairs(answers[packet] or {}) do of.awaited[answer] = true end
    end
    return told
end

local function addTexts(tree, data, at)
    while at < data:len() do
        local rest = data:range(at):bytes()
        local length = 0
        while length < rest:len() and rest:get_index(length) ~= 0 do length = length + 1 end
        if length > 0 then tree:add(f.text, data(at, length), data(at, length):string(ENC_UTF_8)) end
        at = at + length + 1
    end
end

local function addProtocols(tree, data)
    local list = {}
    for at = 0, data:len() - 3, 3 do
        local tag, number = data(at, 1):string(), data(at + 1, 2):le_uint()
        list[#list + 1] = string.format("%s%03d", tag, number)
        tree:add(f.protocol, data(at, 3), list[#list]):append_text(" (" .. (tags[tag] or "unknown tag") .. ")")
    end
    local shown = table.concat(list, " ", 1, math.min(#list, 20))
    return #list > 20 and shown .. " … (" .. #list .. ")" or shown
end

local function addNumber(field, size)
    return { least = size, show = function(tree, data) return tree:add_le(field, data(0, size)) and nil end }
end

-- By packet id: the least length of the data, and what shows it. What show returns goes into the column Info.
local usbPayloads = { [6] = addNumber(f.unit, 4), [17] = addNumber(f.largest, 4) }
local payloads = {
    [10] = { least = 2, show = function(tree, data)
        tree:add_le(f.command, data(0, 2))
        return commands[data(0, 2):le_uint()] or ("command " .. data(0, 2):le_uint())
    end },
    [12] = addNumber(f.command, 2),
    [14] = { least = 8, show = function(tree, data)
        tree:add(f.month, data(0, 1)); tree:add(f.day, data(1, 1)); tree:add_le(f.year, data(2, 2))
        tree:add_le(f.hour, data(4, 2)); tree:add(f.minute, data(6, 1)); tree:add(f.second, data(7, 1))
    end },
    [28] = addNumber(f.requests, 2),
    [38] = addNumber(f.unit, 4),
    [51] = { least = 64, show = function(tree, data) tree:add(f.data, data(0, 64)) end },
    [248] = { least = 0, show = function(tree, data) addTexts(tree, data, 0) end },
    [253] = { least = 0, show = addProtocols },
    [255] = { least = 4, show = function(tree, data)
        tree:add_le(f.product, data(0, 2))
        local version = data(2, 2):le_int()
        tree:add_le(f.version, data(2, 2)):append_text(string.format(" (%.2f)", version / 100))
        addTexts(tree, data, 4)
        return string.format("product %d, version %.2f", data(0, 2):le_uint(), version / 100)
    end },
    [525] = { least = 1, show = function(tree, data) addTexts(tree, data, 0) end },
    [980] = addNumber(f.region, 1),
    [981] = { least = 9, show = function(tree, data) tree:add_le(f.regionSize, data(0, 8)); tree:add(f.status, data(8, 1)) end },
    [1523] = addNumber(f.timeout, 4),
}

local function addPayload(tree, known, data)
    if not known then
        if data:len() > 0 then tree:add(f.data, data()) end
        return nil
    end
    if data:len() < known.least then
        tree:add_proto_expert_info(e.payload)
        return nil
    end
    return data:len() > 0 and known.show(tree, data) or nil
end

local function addPacket(tree, tvb, told)
    if tvb:len() < kHeader then
        tree:add_proto_expert_info(e.short)
        return "shorter than a header"
    end
    local layer, id, size = tvb(0, 1):uint(), tvb(4, 2):le_uint(), tvb(8, 4):le_uint()
    local isUsb = layer == kUsbLayer
    local names = isUsb and usbIds or ids
    tree:add(f.layer, tvb(0, 1))
    tree:add(f.reserved, tvb(1, 3))
    tree:add_le(isUsb and f.usbId or f.id, tvb(4, 2))
    tree:add(f.reserved, tvb(6, 2))
    tree:add_le(f.size, tvb(8, 4))
    if not layers[layer] then tree:add_proto_expert_info(e.layer) end
    if size ~= tvb:len() - kHeader then tree:add_proto_expert_info(e.size) end
    if not names[id] then tree:add_proto_expert_info(e.unknown) end
    if told.isUnasked then tree:add_proto_expert_info(e.unasked) end

    local name = (names[id] or "packet") .. " (" .. id .. ")"
    tree:append_text(", " .. name)
    if tvb:len() == kHeader then return name end
    local more = addPayload(tree, (isUsb and usbPayloads or payloads)[id], tvb(kHeader):tvb())
    return more and name .. ": " .. more or name
end

function trovik.dissector(tvb, pinfo, tree)
    local endpoint = fEndpoint().value
    if endpoint % 0x80 == 0 or tvb:len() == 0 then return 0 end
    if not pinfo.visited then frames[pinfo.number] = learn(tvb, endpoint) end
    local told = frames[pinfo.number]
    pinfo.cols.protocol = "Trovik"
    local branch = tree:add(trovik, tvb(), "Trovik")
    if told.missingEmpty then branch:add_proto_expert_info(e.empty) end
    if told.isFragment then
        branch:add(f.fragment, tvb())
        pinfo.cols.info = "part of a packet"
        return tvb:len()
    end
    local whole = told.bytes:len() == tvb:len() and tvb or told.bytes:tvb("Packet from several transfers")
    pinfo.cols.info = addPacket(branch, whole, told)
    return tvb:len()
end

-- Sees what has no data, too: descriptors, from which an endpoint's packet size is learnt, and empty transfers.
local watcher = Proto("trovik_watcher", "Trovik device protocol: empty transfers")
function watcher.dissector(_, pinfo)
    if pinfo.visited or not fBus() then return end
    local endpoints, sizes = { fDescriptorEndpoint() }, { fDescriptorSize() }
    for i = 1, math.min(#endpoints, #sizes) do device().sizes[endpoints[i].value] = sizes[i].value % 2048 end
    local endpoint, length = fEndpoint(), fUrbLength()
    if not endpoint or not length or length.value ~= 0 or endpoint.value % 0x80 == 0 then return end
    local isSubmitted = fUrbType() and tostring(fUrbType()):find("S", 1, true)
    if endpoint.value < 0x80 and isSubmitted then pipe(device(), endpoint.value).full = false end
end
register_postdissector(watcher)

local registered = nil
local function register()
    local products = DissectorTable.get("usb.product")
    if registered then products:remove(registered, trovik) end
    registered = trovik.prefs.vendor * 65536 + kProduct
    products:add(registered, trovik)
end
function trovik.prefs_changed() register() end
register()

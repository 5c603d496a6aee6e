-- Wireshark dissector of hybase packets: logins, keep-alives, JSON calls, notifications.
-- docs/wireshark.md tells how to install and use it, docs/protocol.md what it shows.
-- For Wireshark and tshark from 4.0 on (Lua 5.2 to 5.4).
--
-- Passwords are never shown: neither that of a login record nor a member "password" or "passwd" of
-- a call. They are still among the bytes of the capture file.

local hybase = Proto("hybase", "Hybase packet protocol")

local HEADER_BYTES = 12
local DATA_FLAG, LOGIN_FLAG = 0xA55A5AA5, 0xA55A5AA6
local FLAG_PATTERN = "\165ZZ[\165\166]"
local FLAG_STARTS = { "^\165", "^\165Z", "^\165ZZ", "^" .. FLAG_PATTERN }

local LONGEST_RECORD = 1024 -- what a service reads of a login request, bytes
local SHORTEST_RECORD = 11 -- a shorter one leaves a client no room for the header of the reply
local DEEPEST_JSON = 1000 -- levels; receivers take deeper texts for no JSON
local LONGEST_READ = 4194304 -- bytes of JSON text that are looked into
local DEEPEST_SHOWN = 30 -- levels that Wireshark's own JSON dissector is asked to show
local LONGEST_SHOWN = 262144 -- bytes of JSON text that it is asked to show
local LONGEST_NAME = 64 -- characters of a method or user in the Info column

local field = {
    flag = ProtoField.uint32("hybase.flag", "Flag", base.HEX,
        { [DATA_FLAG] = "data", [LOGIN_FLAG] = "login" }),
    type = ProtoField.uint32("hybase.type", "Type"),
    length = ProtoField.int32("hybase.length", "Length"),
    kind = ProtoField.string("hybase.kind", "Kind"),
    login_user = ProtoField.string("hybase.login.user", "User"),
    login_password = ProtoField.string("hybase.login.password", "Password"),
    login_record = ProtoField.string("hybase.login.record", "Record"),
    login_reply = ProtoField.string("hybase.login.reply", "Reply"),
    login_admitted = ProtoField.bool("hybase.login.admitted", "Admitted"),
    text = ProtoField.string("hybase.text", "Text"),
    method = ProtoField.string("hybase.method", "Method"),
    sentcnt = ProtoField.int32("hybase.sentcnt", "Sent count"),
    user = ProtoField.string("hybase.user", "User"),
    errorcode = ProtoField.int32("hybase.errorcode", "Error code"),
    errormessage = ProtoField.string("hybase.errormessage", "Error message"),
    binary = ProtoField.bytes("hybase.binary", "Binary data"),
    binary_length = ProtoField.uint32("hybase.binary.length", "Binary length"),
    payload = ProtoField.bytes("hybase.payload", "Payload"),
    response_in = ProtoField.framenum("hybase.response_in", "Response in", base.NONE, frametype.RESPONSE),
    request_in = ProtoField.framenum("hybase.request_in", "Request in", base.NONE, frametype.REQUEST),
    response_time = ProtoField.relative_time("hybase.response_time", "Response time"),
    -- Only their number: such bytes may hold a login record.
    skipped = ProtoField.uint32("hybase.skipped", "Bytes of no packet"),
    rest = ProtoField.uint32("hybase.rest", "Bytes of a packet before"),
}
for _, each in pairs(field) do
    table.insert(hybase.fields, each)
end

local finding = {
    bad_flag = ProtoExpert.new("hybase.bad_flag", "Bad flag", expert.group.PROTOCOL, expert.severity.ERROR),
    bad_length = ProtoExpert.new("hybase.bad_length", "Bad length", expert.group.PROTOCOL, expert.severity.ERROR),
    long = ProtoExpert.new("hybase.long", "Long packet", expert.group.PROTOCOL, expert.severity.WARN),
    cut = ProtoExpert.new("hybase.cut", "Packet not whole", expert.group.UNDECODED, expert.severity.NOTE),
    login = ProtoExpert.new("hybase.login.odd", "Odd login", expert.group.PROTOCOL, expert.severity.WARN),
    late = ProtoExpert.new("hybase.login.late", "Login again", expert.group.SEQUENCE, expert.severity.NOTE),
    not_json = ProtoExpert.new("hybase.not_json", "No JSON", expert.group.MALFORMED, expert.severity.WARN),
    odd_call = ProtoExpert.new("hybase.odd_call", "Odd call", expert.group.PROTOCOL, expert.severity.WARN),
    error = ProtoExpert.new("hybase.error", "Error response", expert.group.RESPONSE_CODE, expert.severity.NOTE),
    unmatched = ProtoExpert.new("hybase.unmatched", "No counterpart", expert.group.SEQUENCE, expert.severity.NOTE),
}
for _, each in pairs(finding) do
    table.insert(hybase.experts, each)
end

hybase.prefs.ports = Pref.range("TCP ports", "8600",
    "Ports of services. Other ports are found by the flag of the packets.", 65535)
hybase.prefs.largest = Pref.uint("Largest packet to put together, MiB", 32,
    "Of longer packets, which TCP brings in many segments, only the beginning is shown.")

local stream_number = Field.new("tcp.stream")
local json_dissector = Dissector.get("json")

-- ---- What is known of the capture, filled in its first pass and only read in later ones ----

local streams -- of each TCP stream: who the client is, its open requests, both directions
local packets -- of each packet, by PacketKey: what the packets before it had told
local rests -- of each frame that goes on with a packet that is not put together: bytes of it

function hybase.init()
    streams, packets, rests = {}, {}, {}
end

local function Side(address, port)
    return tostring(address) .. " " .. tostring(port)
end

local function StreamOf(pinfo)
    local from, to = Side(pinfo.src, pinfo.src_port), Side(pinfo.dst, pinfo.dst_port)
    local number = stream_number()
    local key = number and number.value or (from < to and from .. to or to .. from)
    local stream = streams[key]
    if not stream then
        stream = { open = {}, unread = {}, in_step = {} }
        streams[key] = stream
    end
    return stream, from, to
end

-- A frame holds a packet once: either at that place of its own bytes, or of what TCP has put together.
local function PacketKey(pinfo, tvb, offset)
    return pinfo.number .. ":" .. (tvb:offset() + offset)
end

-- ---- Texts ----

-- Bytes that are no UTF-8 would spoil what reads the output.
local function Utf8(text)
    local rest = text:gsub("[\240-\244][\128-\191][\128-\191][\128-\191]", " ")
    rest = rest:gsub("[\224-\239][\128-\191][\128-\191]", " "):gsub("[\194-\223][\128-\191]", " ")
    if rest:find("[\128-\255]") then text = text:gsub("[\128-\255]", "?") end
    return text
end

-- For the Info column: one short line.
local function Short(text)
    if #text > LONGEST_NAME then text = text:sub(1, LONGEST_NAME) .. "..." end
    return (Utf8(text):gsub("%c", "."))
end

local function Hidden(bytes)
    return "(hidden, " .. bytes .. " bytes)"
end

local function Duration(seconds)
    local nanoseconds = math.floor(seconds * 1e9 + 0.5)
    return NSTime.new(math.floor(nanoseconds / 1e9), nanoseconds % 1e9)
end

local function Milliseconds(seconds)
    return string.format(seconds < 0.001 and "%.2f ms" or "%.1f ms", seconds * 1000)
end

-- ---- JSON: as much of it as calls need, read as receivers do ----
--
-- A member name is compared without regard to case and the first of equal ones counts; what stands
-- behind the first value is not looked at. There is no recursion: the nesting is the sender's choice.
-- Only malformed \u escapes, which receivers read as nothing, make a text no JSON here.

local ESCAPES = { b = "\b", f = "\f", n = "\n", r = "\r", t = "\t", ['"'] = '"', ["\\"] = "\\", ["/"] = "/" }
local WORDS = { "true", "false", "null" }
local SECRET = { password = true, passwd = true }

local function EncodeUtf8(code)
    if code < 0x80 then return string.char(code) end
    if code < 0x800 then return string.char(0xC0 + math.floor(code / 64), 0x80 + code % 64) end
    if code >= 0xD800 and code < 0xE000 then return "?" end
    return string.char(0xE0 + math.floor(code / 4096), 0x80 + math.floor(code / 64) % 64, 0x80 + code % 64)
end

local function Unescape(raw)
    local good = true
    local text = raw:gsub("\\(.)(%x?%x?%x?%x?)", function(letter, hex)
        if letter == "u" and #hex == 4 then return EncodeUtf8(tonumber(hex, 16)) end
        if not ESCAPES[letter] then good = false end
        return (ESCAPES[letter] or "") .. hex
    end)
    return good and text or nil
end

-- The string whose opening quote stands at `at`, and the place behind it; nil if there is none.
local function ReadString(text, at)
    local from = at + 1
    while true do
        local stop = text:find('["\\]', from)
        if not stop then return nil end
        if text:byte(stop) == 34 then
            return Unescape(text:sub(at + 1, stop - 1)), stop + 1
        end
        from = stop + 2
    end
end

-- The place behind the number at `at`; nil if there is none. Part by part: one pattern for all of it
-- would try every way to share out the digits, which takes minutes where there are a million.
local function NumberEnd(text, at)
    local behind = text:match("^-?%d+()", at)
    if not behind then return nil end
    behind = text:match("^%.%d*()", behind) or behind
    return text:match("^[eE][-+]?%d+()", behind) or behind
end

local function ReadScalar(text, at)
    if text:byte(at) == 34 then return ReadString(text, at) end
    local behind = NumberEnd(text, at)
    if behind then return tonumber(text:sub(at, behind - 1)), behind end
    local word = text:match("^%l+", at) or ""
    for _, known in ipairs(WORDS) do
        if word:sub(1, #known) == known then return known == "true", at + #known end
    end
    return nil
end

local function AddHidden(scan, first, behind)
    if not scan.secret_level then table.insert(scan.secrets, { first = first, behind = behind }) end
end

-- Members are kept of the root and of the objects in it, no deeper.
local function Keep(scan, value)
    local top = scan.stack[#scan.stack]
    if top and top.members and top.members[top.key] == nil then top.members[top.key] = value end
end

local function Open(scan, opener)
    local stack = scan.stack
    if #stack >= DEEPEST_JSON then return false end
    local is_object = opener == "{"
    local members = is_object and #stack < 2 and {} or nil
    local parent = stack[#stack]
    Keep(scan, members or false)
    if parent and SECRET[parent.key] and not scan.secret_level then
        scan.secret_level, scan.secret_first = #stack + 1, scan.at
    end
    if #stack == 0 then scan.root = members end
    table.insert(stack, { members = members, is_object = is_object, closer = is_object and "}" or "]" })
    scan.deepest = math.max(scan.deepest, #stack)
    scan.at = scan.at + 1
    scan.want = is_object and "first_key" or "first_value"
    return true
end

local function Close(scan)
    local level = #scan.stack
    table.remove(scan.stack)
    scan.at = scan.at + 1
    if scan.secret_level == level then
        scan.secret_level = nil
        AddHidden(scan, scan.secret_first, scan.at)
    end
    scan.want = "comma"
    return true
end

-- What may come next; each takes it and returns true, or false where the text is no JSON.
local step = {}

function step.value(scan, char)
    if char == "{" or char == "[" then return Open(scan, char) end
    local value, behind = ReadScalar(scan.text, scan.at)
    if value == nil then return false end
    local top = scan.stack[#scan.stack]
    if top and SECRET[top.key] then AddHidden(scan, scan.at, behind) end
    Keep(scan, value)
    scan.at, scan.want = behind, "comma"
    return true
end

function step.key(scan, char)
    if char ~= '"' then return false end
    local key, behind = ReadString(scan.text, scan.at)
    if not key then return false end
    behind = scan.text:find("[^\1-\32]", behind) or behind
    if scan.text:byte(behind) ~= 58 then return false end
    scan.stack[#scan.stack].key = key:lower()
    scan.has_secret = scan.has_secret or SECRET[key:lower()]
    scan.at, scan.want = behind + 1, "value"
    return true
end

function step.first_value(scan, char)
    if char == "]" then return Close(scan) end
    return step.value(scan, char)
end

function step.first_key(scan, char)
    if char == "}" then return Close(scan) end
    return step.key(scan, char)
end

function step.comma(scan, char)
    local top = scan.stack[#scan.stack]
    if char == top.closer then return Close(scan) end
    scan.at, scan.want = scan.at + 1, top.is_object and "key" or "value"
    return char == ","
end

-- Result: `root` (members by lower-case name, nil when the text is no object), `good`, `at` (place
-- behind the value, or of the fault), `deepest`, `secrets` (places of values to hide).
local function ScanJson(text)
    local scan = { text = text, at = 1, want = "value", stack = {}, secrets = {}, deepest = 0 }
    if text:sub(1, 3) == "\239\187\191" then scan.at = 4 end
    repeat
        scan.at = text:find("[^\1-\32]", scan.at) or #text + 1
        scan.good = step[scan.want](scan, text:sub(scan.at, scan.at))
    until not scan.good or (scan.want == "comma" and #scan.stack == 0)
    return scan
end

local function WithoutSecrets(scan)
    local parts, from = {}, 1
    for _, secret in ipairs(scan.secrets) do
        table.insert(parts, scan.text:sub(from, secret.first - 1))
        local quotes = scan.text:byte(secret.first) == 34 and 2 or 0
        table.insert(parts, '"' .. Hidden(secret.behind - secret.first - quotes) .. '"')
        from = secret.behind
    end
    table.insert(parts, scan.text:sub(from, scan.at - 1))
    return table.concat(parts)
end

-- As the integer of a JSON number reads: cut off towards zero, held within 32 bits.
local function Int32(value)
    if type(value) ~= "number" then return nil end
    if value >= 2147483647 then return 2147483647 end
    if value <= -2147483648 then return -2147483648 end
    return value < 0 and math.ceil(value) or math.floor(value)
end

local function String(value)
    return type(value) == "string" and value or nil
end

local function Object(value)
    return type(value) == "table" and value or nil
end

-- What a message says about itself. A response ends with `error`, which a packet that is not whole
-- may lack; a notification has no `sentcnt`.
local function ReadMessage(scan)
    local root = scan.root or {}
    local failure = Object(root.error)
    local message = { method = String(root.method), sentcnt = Int32(root.sentcnt) }
    message.user = String((Object(root.user) or {}).name)
    message.has_param = root.param ~= nil
    message.has_error = failure ~= nil
    message.is_response = message.sentcnt and (message.has_error or not scan.good)
    if failure then
        message.errorcode = Int32(failure.errorcode)
        if message.errorcode == nil or message.errorcode == -1 then
            message.errorcode = Int32(failure.errcode) or message.errorcode
        end
        message.errormessage = String(failure.message)
    end
    return message
end

-- ---- Who is the client ----

local function IsServicePort(port)
    for first, last in hybase.prefs.ports:gmatch("(%d+)%-?(%d*)") do
        local to = last ~= "" and tonumber(last) or tonumber(first)
        if port >= tonumber(first) and port <= to then return true end
    end
    return false
end

local function GuessByPorts(packet)
    local from, to = IsServicePort(packet.pinfo.src_port), IsServicePort(packet.pinfo.dst_port)
    if from == to then return nil end
    return from and packet.to or packet.from
end

local function GuessByMessage(packet, message)
    if message.is_response then return packet.to end
    if message.has_param then return packet.from end
    return nil
end

-- Whoever logs in is the client. A first login packet with any other text than the two usual replies
-- counts as a record, and so stays hidden.
local function ClientByLogin(packet, text)
    if text == "OK" or text == "FAILED" then return packet.to end
    return packet.from
end

-- ---- Login packets ----

local function ShowRecord(packet, text)
    local tree, payload = packet.tree, packet.payload
    local mark = text:find(";", 1, true)
    if not mark then
        tree:add(field.login_record, payload, Hidden(packet.length))
        return "Login request, record hidden"
    end
    local user = Utf8(text:sub(1, mark - 1))
    tree:add(field.login_user, payload(0, mark - 1), user)
    local password = mark < payload:len() and payload(mark) or payload
    tree:add(field.login_password, password, Hidden(packet.length - mark))
    return "Login request, user " .. Short(user)
end

local function CheckRecord(packet)
    if packet.length > LONGEST_RECORD then
        packet.item:add_proto_expert_info(finding.login, "A service reads " .. LONGEST_RECORD ..
            " bytes of a record and takes the rest for the next header")
    elseif packet.length < SHORTEST_RECORD then
        packet.item:add_proto_expert_info(finding.login, "A client whose record has fewer than " ..
            SHORTEST_RECORD .. " bytes cannot read the reply")
    end
end

local function ShowReply(packet, text)
    local admitted = text:sub(1, 2) == "OK"
    packet.tree:add(field.login_reply, packet.payload, Utf8(text))
    packet.tree:add(field.login_admitted, packet.payload, admitted):set_generated()
    local room = packet.known.record_bytes
    if room and packet.length > room + 1 then
        packet.item:add_proto_expert_info(finding.login,
            "The client reads " .. room + 1 .. " bytes of this reply")
    end
    return "Login reply: " .. (admitted and "OK" or "refused, " .. Short(text))
end

local function NoteLogin(packet, text)
    local stream, known = packet.stream, packet.known
    if not stream.logging_in then stream.client = ClientByLogin(packet, text) end
    known.from_client = stream.client == packet.from
    known.late = stream.admitted
    known.record_bytes = stream.record_bytes
    if not known.from_client and text:sub(1, 2) == "OK" then stream.admitted = true end
    if known.from_client and not known.late then stream.record_bytes = packet.length end
    stream.logging_in = true
end

local function DissectLogin(packet)
    if packet.length == 0 then
        packet.item:add_proto_expert_info(finding.login, "An empty login packet fails the login")
        return "login", "Empty login packet"
    end
    local text = packet.payload and packet.payload:raw() or ""
    if packet.is_new then NoteLogin(packet, text) end
    if packet.known.late then packet.item:add_proto_expert_info(finding.late, "The receiver drops it") end
    if not packet.payload then return "login", "Login packet" end
    if not packet.known.from_client then return "login reply", ShowReply(packet, text) end
    CheckRecord(packet)
    return "login request", ShowRecord(packet, text)
end

-- ---- Calls ----

-- The oldest open request of that number and method: a server answers one after the other.
local function TakeRequest(stream, message)
    local open = stream.open[message.sentcnt] or {}
    for index, request in ipairs(open) do
        if request.method == message.method then return table.remove(open, index) end
    end
    return nil
end

local function NoteMessage(packet, message)
    local stream, known = packet.stream, packet.known
    stream.client = stream.client or GuessByPorts(packet) or GuessByMessage(packet, message)
    known.from_client = stream.client == packet.from
    known.from_server = stream.client == packet.to
    known.frame, known.time, known.method = packet.pinfo.number, packet.pinfo.rel_ts, message.method
    if known.from_client then
        local number = message.sentcnt or 0 -- what the response will say where the request has none
        stream.open[number] = stream.open[number] or {}
        table.insert(stream.open[number], known)
    elseif known.from_server and message.is_response then
        known.request = TakeRequest(stream, message)
        if known.request then known.request.response = known end
    end
end

local function ShowRequest(packet)
    local response = packet.known.response
    if response then
        packet.tree:add(field.response_in, response.frame):set_generated()
    elseif packet.pinfo.visited then
        packet.item:add_proto_expert_info(finding.unmatched, "No response in this capture")
    end
end

local function ShowResponse(packet, message)
    local parts, request = {}, packet.known.request
    if request then
        local seconds = packet.known.time - request.time
        packet.tree:add(field.request_in, request.frame):set_generated()
        packet.tree:add(field.response_time, Duration(seconds)):set_generated()
        table.insert(parts, ", " .. Milliseconds(seconds))
    else
        packet.item:add_proto_expert_info(finding.unmatched, "No request in this capture")
    end
    if message.has_error and message.errorcode ~= 0 then
        local code = message.errorcode or "without a code"
        packet.item:add_proto_expert_info(finding.error, "Error " .. code ..
            (message.errormessage and ": " .. Short(message.errormessage) or ""))
        table.insert(parts, ", error " .. code)
    end
    return table.concat(parts)
end

local function ShowMembers(tree, range, message)
    for _, name in ipairs({ "method", "sentcnt", "user", "errorcode", "errormessage" }) do
        local value = message[name]
        if type(value) == "string" then value = Utf8(value) end
        if value ~= nil then tree:add(field[name], range, value) end
    end
end

-- Wireshark's own dissector shows the members; it gets a copy where something in it is hidden.
local function ShowJson(packet, range, scan)
    local text = WithoutSecrets(scan)
    packet.tree:add(field.text, range, Utf8(text))
    if scan.deepest > DEEPEST_SHOWN or #text > LONGEST_SHOWN then
        packet.item:add_proto_expert_info(finding.long, "The text is too deep or too long to be shown by member")
        return
    end
    local tvb = #scan.secrets == 0 and range(0, scan.at - 1):tvb() or
        ByteArray.new(text, true):tvb("JSON without passwords")
    json_dissector:call(tvb, packet.pinfo, packet.tree)
end

-- Where a text that does not read to its end may hold a password, nothing of it is shown.
local function ShowBrokenText(packet, range, scan)
    local has_secret = scan.has_secret or scan.text:lower():find("passw", 1, true)
    packet.tree:add(field.text, range, has_secret and Hidden(#scan.text) or Utf8(scan.text))
end

local function CheckText(packet, scan, text_bytes)
    if scan.good and scan.at <= text_bytes then
        packet.item:add_proto_expert_info(finding.odd_call,
            text_bytes - scan.at + 1 .. " bytes behind the JSON value are not looked at")
    elseif not scan.good and text_bytes > LONGEST_READ then
        packet.item:add_proto_expert_info(finding.long, "Only the first " .. LONGEST_READ ..
            " bytes of the text are looked into")
    elseif not scan.good and packet.is_whole then
        packet.item:add_proto_expert_info(finding.not_json,
            "No JSON from byte " .. scan.at - 1 .. " of the text on: the receiver drops it, nobody answers")
    end
end

local function ShowBinary(packet, at)
    if at >= packet.payload:len() then return end -- nothing follows the zero byte
    local range = packet.payload(at)
    packet.tree:add(field.binary_length, range, packet.length - at)
    packet.tree:add(field.binary, range)
end

local function DescribeCall(packet, message)
    local name = Short(message.method or "without a method")
    local number = message.sentcnt and string.format(" #%d", message.sentcnt) or ""
    if packet.known.from_client then
        ShowRequest(packet)
        if not message.method then
            packet.item:add_proto_expert_info(finding.odd_call, "Without a method: answered with error -32600")
        end
        return "request", "Request " .. name .. number
    end
    if packet.known.from_server and message.is_response then
        return "response", "Response " .. name .. number .. ShowResponse(packet, message)
    end
    if packet.known.from_server then return "notification", "Notification " .. name end
    return "message", "Message " .. name .. number
end

local function ShowCallBody(packet, range, scan, text_bytes)
    if scan.good then
        ShowJson(packet, range, scan)
    else
        ShowBrokenText(packet, range, scan)
    end
    if text_bytes < packet.payload:len() then ShowBinary(packet, text_bytes + 1) end
end

-- Result: kind, line for the Info column, and what shows the body, below all that is said about it.
local function DissectCall(packet)
    local all = packet.payload:raw()
    local text = all:sub(1, (all:find("\0", 1, true) or #all + 1) - 1)
    local range = packet.payload(0, math.max(#text, 1))
    local scan = ScanJson(text:sub(1, LONGEST_READ))
    local is_whole = packet.is_whole and #text <= LONGEST_READ
    local message = ReadMessage(scan)
    local function body() ShowCallBody(packet, range, scan, #text) end

    CheckText(packet, scan, #text)
    ShowMembers(packet.tree, range, message)
    if not scan.good and is_whole then return "no JSON", "Data, no JSON, " .. packet.length .. " bytes", body end
    if not scan.good and not message.method then return "data", "Data, " .. packet.length .. " bytes", body end
    if packet.is_new then NoteMessage(packet, message) end
    local kind, info = DescribeCall(packet, message)
    return kind, info, body
end

local function DissectData(packet)
    if packet.type == 0 and packet.length == 0 then return "keep-alive", "Keep-alive" end
    if packet.type == 0 and packet.payload then return DissectCall(packet) end
    if packet.payload then packet.tree:add(field.payload, packet.payload) end
    return "data", "Data, type " .. packet.type .. ", " .. packet.length .. " bytes"
end

-- ---- One packet ----

local function ShowHeader(tree, range)
    tree:add(field.flag, range(0, 4))
    tree:add(field.type, range(4, 4))
    tree:add(field.length, range(8, 4))
end

-- Header and as much of the payload as `bytes` holds.
local function DissectPacket(packet, tvb, offset, bytes, root)
    local range = tvb(offset, bytes)
    packet.item = root:add(hybase, range)
    packet.tree = packet.item
    packet.payload = bytes > HEADER_BYTES and tvb(offset + HEADER_BYTES, bytes - HEADER_BYTES) or nil
    packet.is_whole = bytes == HEADER_BYTES + packet.length
    ShowHeader(packet.tree, range)
    if not packet.is_whole then
        packet.item:add_proto_expert_info(finding.cut, bytes - HEADER_BYTES .. " of " .. packet.length ..
            " bytes of payload are shown")
    end
    local dissect = packet.flag == LOGIN_FLAG and DissectLogin or DissectData
    local kind, info, show_body = dissect(packet)
    packet.tree:add(field.kind, range(0, 0), kind):set_generated()
    if show_body then show_body() end
    packet.item:set_text("Hybase, " .. info)
    return info
end

local function LargestBytes()
    return hybase.prefs.largest * 1048576
end

-- A header that a receiver takes, and of a length that may be true.
local function IsHeader(tvb, offset)
    if tvb:len() - offset < HEADER_BYTES then return false end
    local flag = tvb(offset, 4):uint()
    local length = tvb(offset + 8, 4):int()
    return (flag == DATA_FLAG or flag == LOGIN_FLAG) and length >= 0 and length <= LargestBytes()
end

local function MayBeginFlag(tvb, offset)
    local bytes = math.min(tvb:len() - offset, 4)
    return tvb:raw(offset, bytes):find(FLAG_STARTS[bytes]) ~= nil
end

-- Where behind `offset` the next packet may begin; the end of the bytes if nowhere.
local function NextPacket(tvb, offset)
    local bytes = tvb:raw(offset)
    local at = bytes:find(FLAG_PATTERN, 2)
    while at do
        if #bytes - at + 1 < HEADER_BYTES or IsHeader(tvb, offset + at - 1) then return offset + at - 1 end
        at = bytes:find(FLAG_PATTERN, at + 1)
    end
    for begun = math.min(3, #bytes - 1), 1, -1 do
        if bytes:find(FLAG_STARTS[begun] .. "$", -begun) then return tvb:len() - begun end
    end
    return tvb:len()
end

-- ---- Bytes in which no packet begins ----

local function DissectBadHeader(packet, tvb, offset, root)
    local behind = NextPacket(tvb, offset)
    local bytes = behind - offset
    local item = root:add(hybase, tvb(offset, bytes), "Hybase, " .. bytes .. " bytes of no packet")
    local reason, info = finding.bad_flag, "Bad flag"
    if MayBeginFlag(tvb, offset) then
        reason, info = finding.bad_length, "Negative length"
    end
    if bytes >= HEADER_BYTES then ShowHeader(item, tvb(offset, HEADER_BYTES)) end
    item:add(field.skipped, tvb(offset, bytes), bytes)
    local consequence = info .. ": the receiver ends the connection here"
    if not packet.known.in_step then
        consequence = consequence .. ", unless the capture began or lost bytes within a packet"
    end
    item:add_proto_expert_info(reason, consequence)
    return bytes, info .. ", " .. bytes .. " bytes"
end

-- The first bytes of a segment that go on with a packet that is not put together. A header at the
-- very beginning shows that the rest never came.
local function RestOfPacket(stream, tvb, pinfo, from)
    if not pinfo.visited and (stream.unread[from] or 0) > 0 then
        local bytes = IsHeader(tvb, 0) and 0 or math.min(stream.unread[from], tvb:reported_len())
        stream.unread[from] = bytes > 0 and stream.unread[from] - bytes or 0
        rests[pinfo.number] = { bytes = bytes, of = tvb:reported_len() }
    end
    local rest = rests[pinfo.number]
    return rest and rest.of == tvb:reported_len() and rest.bytes or 0
end

local function ShowRest(tvb, bytes, root)
    if tvb:len() > 0 then
        local range = tvb(0, math.min(bytes, tvb:len()))
        root:add(hybase, range, "Hybase, rest of a packet"):add(field.rest, range, bytes)
    end
    return "Rest of a packet, " .. bytes .. " bytes"
end

-- ---- The stream ----

-- How many more bytes TCP must bring before the packet at `offset` can be shown; nil for none.
local function BytesMissing(tvb, offset, pinfo)
    local is_cut = tvb:len() < tvb:reported_len()
    if is_cut or pinfo.can_desegment == 0 then return nil end
    local bytes = tvb:len() - offset
    if bytes < HEADER_BYTES then return MayBeginFlag(tvb, offset) and DESEGMENT_ONE_MORE_SEGMENT or nil end
    if not IsHeader(tvb, offset) then return nil end
    local missing = HEADER_BYTES + tvb(offset + 8, 4):int() - bytes
    return missing > 0 and missing or nil
end

local function NewPacket(pinfo, tvb, offset)
    local packet = { pinfo = pinfo }
    packet.stream, packet.from, packet.to = StreamOf(pinfo)
    local key = PacketKey(pinfo, tvb, offset)
    packet.is_new = packets[key] == nil
    packet.known = packets[key] or { in_step = packet.stream.in_step[packet.from] }
    packets[key] = packet.known
    return packet
end

-- A packet of which not all bytes are there, and TCP is not asked for more.
local function DissectBeginning(packet, tvb, offset, root)
    local here = tvb:reported_len() - offset
    if packet.is_new then packet.stream.unread[packet.from] = HEADER_BYTES + packet.length - here end
    local info = DissectPacket(packet, tvb, offset, tvb:len() - offset, root)
    if packet.length > LargestBytes() then
        packet.item:add_proto_expert_info(finding.long, packet.length ..
            " bytes are more than the preference allows to put together")
    end
    return here, info
end

local function DissectOne(tvb, offset, pinfo, root)
    local packet = NewPacket(pinfo, tvb, offset)
    local bytes = tvb:len() - offset
    local is_whole_header = bytes >= HEADER_BYTES
    local has_flag = MayBeginFlag(tvb, offset)
    if not has_flag or (is_whole_header and tvb(offset + 8, 4):int() < 0) then
        packet.stream.in_step[packet.from] = nil
        return DissectBadHeader(packet, tvb, offset, root)
    end
    if not is_whole_header then
        root:add(hybase, tvb(offset), "Hybase, part of a header"):add_proto_expert_info(finding.cut)
        return tvb:reported_len() - offset, "Part of a header"
    end
    packet.stream.in_step[packet.from] = true
    packet.flag, packet.type = tvb(offset, 4):uint(), tvb(offset + 4, 4):uint()
    packet.length = tvb(offset + 8, 4):int()
    local whole = HEADER_BYTES + packet.length
    if bytes < whole then return DissectBeginning(packet, tvb, offset, root) end
    return whole, DissectPacket(packet, tvb, offset, whole, root)
end

-- TCP may call several times for one frame: once for a packet that ends in it, once for the others.
local function ShowInfo(pinfo, infos, is_first)
    if #infos == 0 then return end
    local line = table.concat(infos, ", ")
    pinfo.cols.protocol:set("HYBASE")
    pinfo.cols.info:set(is_first and line or ", " .. line)
    pinfo.cols.info:fence()
end

function hybase.dissector(tvb, pinfo, root)
    local is_first = tostring(pinfo.cols.protocol) ~= "HYBASE"
    local stream, from = StreamOf(pinfo)
    local infos = {}
    local offset = RestOfPacket(stream, tvb, pinfo, from)
    if offset > 0 then table.insert(infos, ShowRest(tvb, offset, root)) end
    while offset < tvb:len() do
        local missing = BytesMissing(tvb, offset, pinfo)
        if missing then
            pinfo.desegment_offset, pinfo.desegment_len = offset, missing
            break
        end
        local bytes, info = DissectOne(tvb, offset, pinfo, root)
        table.insert(infos, info)
        offset = offset + bytes
    end
    ShowInfo(pinfo, infos, is_first)
    return tvb:len()
end

-- ---- Which ports ----

-- Strict, since it is asked about every connection that no other dissector wants: a call begins with
-- a brace, a login record is short.
local function LooksLikePacket(tvb)
    if tvb:len() < HEADER_BYTES then return tvb:len() >= 4 and MayBeginFlag(tvb, 0) end
    if not IsHeader(tvb, 0) then return false end
    local is_call = tvb(0, 4):uint() == DATA_FLAG and tvb(4, 4):uint() == 0
    if tvb:len() == HEADER_BYTES or not is_call then return true end
    return tvb(HEADER_BYTES, 1):uint() == 0x7B or tvb(8, 4):int() == 0
end

hybase:register_heuristic("tcp", function(tvb, pinfo, root)
    if not LooksLikePacket(tvb) then return false end
    pinfo.conversation = hybase
    hybase.dissector(tvb, pinfo, root)
    return true
end)

local tcp_ports = DissectorTable.get("tcp.port")
local ports_in_use = hybase.prefs.ports
tcp_ports:add(ports_in_use, hybase)

function hybase.prefs_changed()
    if ports_in_use == hybase.prefs.ports then return end
    if ports_in_use ~= "" then tcp_ports:remove(ports_in_use, hybase) end
    ports_in_use = hybase.prefs.ports
    if ports_in_use ~= "" then tcp_ports:add(ports_in_use, hybase) end
end

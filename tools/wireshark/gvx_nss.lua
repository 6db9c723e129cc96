-- Wireshark dissector of the links between the gateway and its platform (docs/nss-link.md): frames over TCP, each a
-- head of 116 bytes and a body. docs/wireshark.md tells how to use it.

local folder = debug.getinfo(1, "S").source:match("^@(.*[/\\])") or "./"
local names = dofile(folder .. "gvx_nss_names.lua")
local results = dofile(folder .. "gvx_nss_results.lua")

local HEAD_BYTES = 116
local ITEM_HEAD_BYTES = 6
local VERSION = 0x0100
local RESPONSE_OFFSET = 0x9000
local LARGEST_FRAME = 4 * 1024 * 1024
local DEFAULT_PORT = 9600
local TAG_XML, TAG_JSON = 1, 7
local LINK_TYPES = { [0x0000] = true, [0x9000] = true, [0x0002] = true, [0x9002] = true }

local tag_names = {
  [1] = "NSS_TAG_XML_CONTENT", [2] = "NSS_TAG_USER_ID", [3] = "NSS_TAG_ATTACHMENT", [4] = "NSS_TAG_ALARM_DESC",
  [5] = "NSS_TAG_EXT_PARAM", [6] = "NSS_TAG_OPERATE_INFO", [7] = "NSS_TAG_JSON_CONTENT",
}
local first_names = {}
for value, found in pairs(names) do
  first_names[value] = found[1]
end

local nss = Proto("gvxnss", "NSS frames of gvx")
local f = nss.fields
f.version = ProtoField.uint16("gvxnss.version", "Protocol version", base.HEX)
f.type = ProtoField.uint16("gvxnss.type", "Message type", base.HEX, first_names)
f.other_name = ProtoField.string("gvxnss.type.other", "The same number is also")
f.response = ProtoField.bool("gvxnss.response", "Response")
f.link_control = ProtoField.bool("gvxnss.link_control", "Of the link itself")
f.seq = ProtoField.uint32("gvxnss.seq", "Sequence number")
f.trace = ProtoField.uint32("gvxnss.trace", "Trace number")
f.transaction = ProtoField.string("gvxnss.transaction", "Transaction")
f.code = ProtoField.uint32("gvxnss.code", "Result", base.DEC, results)
f.reserve = ProtoField.bytes("gvxnss.reserve", "Reserve")
f.length = ProtoField.uint32("gvxnss.length", "Frame length")
f.form = ProtoField.string("gvxnss.form", "Body form")
f.item = ProtoField.none("gvxnss.item", "Item")
f.tag = ProtoField.uint16("gvxnss.item.tag", "Tag", base.DEC, tag_names)
f.item_length = ProtoField.uint32("gvxnss.item.length", "Length")
f.xml = ProtoField.string("gvxnss.xml", "XML")
f.json = ProtoField.string("gvxnss.json", "JSON")
f.value = ProtoField.bytes("gvxnss.item.value", "Value")
f.structure = ProtoField.bytes("gvxnss.structure", "Structure")
f.link_id = ProtoField.string("gvxnss.link_id", "Link identifier")
f.lost = ProtoField.bytes("gvxnss.lost", "Bytes that are no frame")

local e = {
  version = ProtoExpert.new("gvxnss.malformed.version", "Foreign protocol version", expert.group.MALFORMED,
    expert.severity.ERROR),
  length = ProtoExpert.new("gvxnss.malformed.length", "Frame length out of range", expert.group.MALFORMED,
    expert.severity.ERROR),
  item = ProtoExpert.new("gvxnss.malformed.item", "Item leads outside the frame", expert.group.MALFORMED,
    expert.severity.ERROR),
  cut = ProtoExpert.new("gvxnss.malformed.cut", "The rest of the frame is missing", expert.group.MALFORMED,
    expert.severity.WARN),
}
nss.experts = { e.version, e.length, e.item, e.cut }
nss.prefs.ports = Pref.range("TCP ports", tostring(DEFAULT_PORT), "Ports on which the gateway listens", 65535)

local function name_of(kind)
  return first_names[kind] or string.format("NSS_UNKNOWN (0x%04x)", kind)
end

-- For places that take any text as it is.
local function printable(text)
  return (text:gsub("[^%g ]", "?"))
end

-- Text as far as a zero byte. The field is padded, not terminated, so a text may fill it.
local function add_padded_text(tree, field, range)
  local stop = range:bytes():raw():find("\0", 1, true)
  if stop == 1 then
    tree:add(field, range, "")
    return ""
  end
  local text = stop and range:range(0, stop - 1) or range
  tree:add_packet_field(field, text, ENC_UTF_8 + ENC_NA)
  return printable(text:bytes():raw())
end

local function add_head(tree, tvb)
  tree:add(f.version, tvb(0, 2))
  local kind = tvb(2, 2):uint()
  local kind_item = tree:add(f.type, tvb(2, 2))
  for i = 2, #(names[kind] or {}) do
    kind_item:add(f.other_name, tvb(2, 2), names[kind][i]):set_generated()
  end
  tree:add(f.response, tvb(2, 2), kind >= RESPONSE_OFFSET):set_generated()
  tree:add(f.link_control, tvb(2, 2), LINK_TYPES[kind] == true):set_generated()
  tree:add(f.seq, tvb(4, 4))
  tree:add(f.trace, tvb(8, 4))
  local head = { kind = kind, seq = tvb(4, 4):uint(), code = tvb(76, 4):uint() }
  head.transaction = add_padded_text(tree, f.transaction, tvb(12, 64))
  tree:add(f.code, tvb(76, 4))
  tree:add(f.reserve, tvb(80, 32))
  head.length_item = tree:add(f.length, tvb(112, 4))
  return head
end

-- The items of a body, and where one leads outside it. Nothing when it is a structure: raw bytes that happen to begin
-- like an item whose length leads outside are an item only when its text begins as its tag says.
local function items_of(body)
  local items, at, size = {}, 0, body:len()
  while size - at >= ITEM_HEAD_BYTES do
    local tag, length = body(at, 2):uint(), body(at + 2, 4):uint()
    if not tag_names[tag] then
      break
    end
    local left = size - at - ITEM_HEAD_BYTES
    if length > left then
      local first = left > 0 and body(at + ITEM_HEAD_BYTES, 1):uint() or 0
      local texty = (tag == TAG_XML and first == 0x3C) or (tag == TAG_JSON and (first == 0x7B or first == 0x5B))
      if #items == 0 and not texty then
        return nil
      end
      return items, at, { tag = tag, length = length }
    end
    items[#items + 1] = { at = at, tag = tag, length = length }
    at = at + ITEM_HEAD_BYTES + length
  end
  if at ~= size then
    return nil
  end
  return items
end

-- The text's own dissector writes into the columns, which are ours.
local function take_apart(dissector, value, pinfo, tree)
  local found = Dissector.get(dissector)
  if found then
    local protocol, info = tostring(pinfo.cols.protocol), tostring(pinfo.cols.info)
    pcall(found.call, found, value:tvb(), pinfo, tree)
    pinfo.cols.protocol, pinfo.cols.info = protocol, info
  end
end

local function add_text(tree, field, dissector, value, pinfo)
  tree:add_packet_field(field, value, ENC_UTF_8 + ENC_NA)
  take_apart(dissector, value, pinfo, tree)
end

local function add_item(tree, body, item, pinfo)
  local branch = tree:add(f.item, body(item.at, ITEM_HEAD_BYTES + item.length))
  branch:append_text(string.format(": %s, %d bytes", tag_names[item.tag], item.length))
  branch:add(f.tag, body(item.at, 2))
  branch:add(f.item_length, body(item.at + 2, 4))
  if item.length == 0 then
    return
  end
  local value = body(item.at + ITEM_HEAD_BYTES, item.length)
  if item.tag == TAG_XML then
    add_text(branch, f.xml, "xml", value, pinfo)
  elseif item.tag == TAG_JSON then
    add_text(branch, f.json, "json", value, pinfo)
  else
    branch:add(f.value, value)
  end
end

local function form_of(items)
  if #items == 1 and items[1].tag == TAG_XML then
    return "XML"
  elseif #items == 1 and items[1].tag == TAG_JSON then
    return "JSON"
  end
  return "items"
end

local function add_body(tree, body, pinfo)
  local items, bad_at, bad = items_of(body)
  if not items then
    tree:add(f.form, body(), "structure"):set_generated()
    local branch = tree:add(f.structure, body())
    if body(0, 1):uint() == 0x7B then  -- some messages carry JSON without an item
      take_apart("json", body(), pinfo, branch)
    end
    return "structure"
  end
  local form = bad and "malformed item" or form_of(items)
  tree:add(f.form, body(), form):set_generated()
  for _, item in ipairs(items) do
    add_item(tree, body, item, pinfo)
  end
  if bad then
    local branch = tree:add(f.item, body(bad_at))
    branch:add(f.tag, body(bad_at, 2))
    branch:add(f.item_length, body(bad_at + 2, 4)):add_proto_expert_info(e.item, string.format(
      "Item of %u bytes in a body that has %d left", bad.length, body:len() - bad_at - ITEM_HEAD_BYTES))
  end
  return form
end

local function add_link_id(tree, body)
  local id = body:bytes():raw():match('"LinkID"%s*:%s*"([^"\\]*)"')
  if id then
    id = printable(id)
    tree:add(f.link_id, body, id):set_generated()
    return id
  end
end

local function describe(head, form, body_bytes, link_id)
  local text = string.format("%s seq=%u", name_of(head.kind), head.seq)
  if head.transaction ~= "" then
    text = text .. " trans=" .. head.transaction
  end
  if head.kind >= RESPONSE_OFFSET then
    local result = head.code ~= 0 and results[head.code]
    text = text .. string.format(" code=%u", head.code) .. (result and " " .. result or "")
  end
  if link_id then
    text = text .. " link=" .. link_id
  elseif form then
    text = text .. string.format(" %s %d", form, body_bytes)
  end
  return text
end

local function note(pinfo, text)
  local before = tostring(pinfo.cols.info)
  pinfo.cols.info = before == "" and text or before .. "; " .. text
end

-- A frame that is there whole, or as much of it as was captured.
local function add_frame(tvb, pinfo, root, length)
  local tree = root:add(nss, tvb())
  local head = add_head(tree, tvb)
  local form, link_id
  if tvb:len() > HEAD_BYTES then
    local body = tvb(HEAD_BYTES):tvb()
    form = add_body(tree, body, pinfo)
    link_id = (head.kind == 0x0000 or head.kind == 0x9000) and add_link_id(tree, body()) or nil
  end
  local text = describe(head, form, tvb:len() - HEAD_BYTES, link_id)
  tree:append_text(", " .. text)
  note(pinfo, text)
  if tvb:len() < length then
    tree:add_proto_expert_info(e.cut)
  end
end

-- The stream has lost its step: nothing behind this place can be trusted.
local function add_malformed(tvb, pinfo, root, which, text)
  local tree = root:add(nss, tvb())
  tree:append_text(", malformed: " .. text)
  if which == e.length then
    add_head(tree, tvb).length_item:add_proto_expert_info(which, text)
    if tvb:len() > HEAD_BYTES then
      tree:add(f.lost, tvb(HEAD_BYTES))
    end
  else
    tree:add(f.lost, tvb()):add_proto_expert_info(which, text)
  end
  note(pinfo, "[malformed: " .. text .. "]")
end

-- Whether the packet under way may ask for more. Noted ahead of its frames: the dissector of a body's text resets what
-- pinfo says about it.
local may_ask = false

-- Asks for more of the stream. False where it cannot be had, as in a capture whose packets were cut.
local function ask_for_more(tvb, pinfo, offset, missing)
  if not may_ask or tvb:len() < tvb:reported_len() then
    return false
  end
  pinfo.desegment_offset = offset
  pinfo.desegment_len = missing
  return true
end

-- Takes one frame off the stream and returns where the next begins; nil at the end of what is there.
local function take_frame(tvb, pinfo, root, offset)
  local left = tvb:len() - offset
  if left >= 2 and tvb(offset, 2):uint() ~= VERSION then
    add_malformed(tvb(offset):tvb(), pinfo, root, e.version,
      string.format("protocol version 0x%04x", tvb(offset, 2):uint()))
    return nil
  end
  if left < HEAD_BYTES then
    if not ask_for_more(tvb, pinfo, offset, DESEGMENT_ONE_MORE_SEGMENT) then
      root:add(nss, tvb(offset)):add_proto_expert_info(e.cut)
      note(pinfo, "[part of a head]")
    end
    return nil
  end
  local length = tvb(offset + 112, 4):uint()
  if length < HEAD_BYTES or length > LARGEST_FRAME then
    add_malformed(tvb(offset):tvb(), pinfo, root, e.length,
      string.format("length %u is outside %d to %d", length, HEAD_BYTES, LARGEST_FRAME))
    return nil
  end
  if left < length and ask_for_more(tvb, pinfo, offset, length - left) then
    return nil
  end
  local there = math.min(left, length)
  add_frame(tvb(offset, there):tvb(), pinfo, root, length)
  return offset + there
end

local function take_frames(tvb, pinfo, root)
  pinfo.cols.protocol = "NSS"
  pinfo.cols.info = ""
  local offset = 0
  while offset and offset < tvb:len() do
    offset = take_frame(tvb, pinfo, root, offset)
  end
  return tvb:len()
end

function nss.dissector(tvb, pinfo, root)
  may_ask = pinfo.can_desegment ~= 0
  return take_frames(tvb, pinfo, root)
end

-- On other ports a conversation is known by its first whole head: the version, a length in range, a type that has a
-- name, and a reserve of zeros.
local function looks_like_frame(tvb)
  if tvb:len() < HEAD_BYTES or tvb(0, 2):uint() ~= VERSION or not names[tvb(2, 2):uint()] then
    return false
  end
  local length = tvb(112, 4):uint()
  return length >= HEAD_BYTES and length <= LARGEST_FRAME and not tvb(80, 32):bytes():raw():find("[^%z]")
end

local function heuristic(tvb, pinfo, root)
  if not looks_like_frame(tvb) then
    return false
  end
  may_ask = true  -- pinfo denies it to a heuristic, yet TCP listens
  take_frames(tvb, pinfo, root)
  pinfo.conversation = nss
  return true
end

local tcp_ports = DissectorTable.get("tcp.port")
local ports_in_use = nss.prefs.ports
tcp_ports:add(ports_in_use, nss)
function nss.prefs_changed()
  if ports_in_use ~= nss.prefs.ports then
    tcp_ports:remove(ports_in_use, nss)
    ports_in_use = nss.prefs.ports
    tcp_ports:add(ports_in_use, nss)
  end
end
nss:register_heuristic("tcp", heuristic)

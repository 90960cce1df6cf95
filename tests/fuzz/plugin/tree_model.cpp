#include "tree_model.h"

#include <QString>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace model {

namespace {

constexpr int OK = 0;
constexpr int FAILED = 1;
constexpr int NOT_FOUND = 404;
constexpr int NOT_ALLOWED = 405;
constexpr int WRONG_FORMAT = 415;
constexpr int EXISTS = 418;

constexpr const char *BEARERS[] = {"GSM-GPRS", "GSM-CSD", "GSM-CSD2"};
constexpr const char *SUFFIXES[] = {"Ph1DC1", "Ph2DC1", "Ph3DC1"};

/// Where a bearer keeps what, in the record.
struct Part {
    std::size_t address, addressSize, id, password, authSize, dns1, dns2, linger, speed;
};
constexpr Part PARTS[] = {
    {0x008, 100, 0x06C, 0x0D0, 100, 0x138, 0x13C, 0x140, 0},
    {0x17D, 44, 0x1A9, 0x1E9, 64, 0x230, 0x234, 0x238, 0x23B},
    {0x23C, 44, 0x268, 0x2A8, 64, 0x2EC, 0x2F0, 0x2F4, 0x2F7},
};

int BearerIndex(const std::string &bearer)
{
    for (int i = 0; i < 3; ++i)
        if (bearer == BEARERS[i])
            return i;
    return -1;
}

// ---- Paths --------------------------------------------------------------------------------------

std::string Parent(const std::string &path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash);
}

std::string Name(const std::string &path)
{
    return path.substr(path.rfind('/') + 1); // npos + 1 is 0
}

std::string First(const std::string &path)
{
    return path.substr(0, path.find('/'));
}

/// Name of the node above the parent; the first name of a path is nobody's grandparent.
std::string GrandParentName(const std::string &path)
{
    const std::string above = Parent(Parent(path));
    return above.find('/') == std::string::npos ? "" : Name(above);
}

/// What a text becomes on its way through a mapping file.
std::string ThroughFile(const std::string &text)
{
    return QString::fromUtf8(text.c_str()).toUtf8().toStdString();
}

/// A connection key: the node name's bytes are taken for one character each.
std::string ConnKey(const std::string &name, const std::string &slot)
{
    return QString::fromLatin1((name + "/" + slot).c_str()).toUtf8().toStdString();
}

// ---- Record fields ------------------------------------------------------------------------------

std::string TextAt(const Bytes &record, std::size_t offset)
{
    const auto *const begin = reinterpret_cast<const char *>(record.data()) + offset;
    return std::string(begin, strnlen(begin, record.size() - offset));
}

void PutText(Bytes &record, std::size_t offset, std::size_t size, const std::string &text)
{
    std::fill_n(record.begin() + static_cast<std::ptrdiff_t>(offset), size, std::uint8_t{0});
    std::memcpy(record.data() + offset, text.data(), std::min(size, text.size()));
}

unsigned int NumberAt(const Bytes &record, std::size_t offset, int width)
{
    unsigned int number = 0;
    for (int i = width; i-- > 0;)
        number = number << 8 | record[offset + static_cast<std::size_t>(i)];
    return number;
}

void PutNumber(Bytes &record, std::size_t offset, int width, unsigned int number)
{
    for (int i = 0; i < width; ++i, number >>= 8)
        record[offset + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(number);
}

std::string DottedQuad(unsigned int address)
{
    char text[16];
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", address >> 24, address >> 16 & 255,
                  address >> 8 & 255, address & 255);
    return text;
}

/// How many bytes of white space stand at that place of a text in UTF-8.
std::size_t WhiteSpaceAt(const std::string &text, std::size_t at)
{
    static const std::vector<std::string> sequences = [] {
        std::vector<std::string> all{" ",
                                     "\t",
                                     "\n",
                                     "\v",
                                     "\f",
                                     "\r",
                                     "\xC2\x85",
                                     "\xC2\xA0",
                                     "\xE1\x9A\x80",
                                     "\xE2\x80\xA8",
                                     "\xE2\x80\xA9",
                                     "\xE2\x80\xAF",
                                     "\xE2\x81\x9F",
                                     "\xE3\x80\x80"};
        for (char last = '\x80'; last <= '\x8A'; ++last)
            all.push_back(std::string("\xE2\x80") + last);
        return all;
    }();
    for (const std::string &sequence : sequences)
        if (text.compare(at, sequence.size(), sequence) == 0)
            return sequence.size();
    return 0;
}

std::string WithoutWhiteSpaceAround(std::string text)
{
    while (const std::size_t size = WhiteSpaceAt(text, 0))
        text.erase(0, size);
    for (std::size_t at = 0; at < text.size();) {
        std::size_t end = at;
        while (const std::size_t size = end < text.size() ? WhiteSpaceAt(text, end) : 0)
            end += size;
        if (end == text.size())
            text.erase(at);
        else
            at = end + (end == at ? 1 : 0);
    }
    return text;
}

bool FromDottedQuad(const std::string &given, unsigned int &address)
{
    const std::string text = WithoutWhiteSpaceAround(given);
    unsigned int parsed = 0;
    std::size_t at = 0;
    for (int part = 0; part < 4; ++part) {
        if (part > 0 && (at >= text.size() || text[at++] != '.'))
            return false;
        unsigned int number = 0;
        int digits = 0;
        for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at, ++digits)
            if (digits < 4)
                number = number * 10 + static_cast<unsigned int>(text[at] - '0');
        if (digits < 1 || digits > 3 || number > 255)
            return false;
        parsed = parsed << 8 | number;
    }
    if (at != text.size())
        return false;
    address = parsed;
    return true;
}

constexpr int RATES[] = {0, 14400, 9600, 4800, 2400};
constexpr unsigned int MODEM_CODES[] = {0, 14, 7, 6, 4};
constexpr unsigned int ISDN_CODES[] = {0, 75, 71, 70, 68};

int RateOf(unsigned int code)
{
    for (std::size_t i = 0; i < 5; ++i)
        if (code == MODEM_CODES[i] || code == ISDN_CODES[i])
            return RATES[i];
    return 0;
}

std::string LineTypeOf(unsigned int code)
{
    if (std::find(MODEM_CODES, MODEM_CODES + 5, code) != MODEM_CODES + 5)
        return "ANALOG-MODEM";
    return std::find(ISDN_CODES, ISDN_CODES + 5, code) != ISDN_CODES + 5 ? "Isdn" : "ANALOG-MODEM";
}

unsigned int CodeOf(const std::string &lineType, int rate)
{
    for (std::size_t i = 0; i < 5; ++i)
        if (RATES[i] == rate)
            return lineType == "Isdn" ? ISDN_CODES[i] : MODEM_CODES[i];
    return 0;
}

bool IsLineType(const std::string &text)
{
    return text == "ANALOG-MODEM" || text == "Isdn" || text == "V.110";
}

bool IsRate(int rate)
{
    return std::find(std::begin(RATES), std::end(RATES), rate) != std::end(RATES);
}

void ClearPart(Bytes &record, const Part &part)
{
    PutText(record, part.address, part.addressSize, "");
    PutText(record, part.id, part.authSize, "");
    PutText(record, part.password, part.authSize, "");
    PutNumber(record, part.dns1, 4, 0);
    PutNumber(record, part.dns2, 4, 0);
    PutNumber(record, part.linger, 2, 0);
    if (part.speed)
        record[part.speed] = 0;
}

void ClearProxies(Bytes &record)
{
    PutText(record, 0x2F8, 100, "");
    PutNumber(record, 0x35C, 2, 0);
    PutText(record, 0x35E, 100, "");
    record[0x3C2] = 0;
    PutText(record, 0x3C3, 100, "");
    PutNumber(record, 0x428, 2, 0);
    PutText(record, 0x42A, 100, "");
    record[0x48E] = 0;
    record[0x004] = static_cast<std::uint8_t>(record[0x004] & 0xFE);
}

void Move(Bytes &record, const std::string &fromBearer, const std::string &toBearer)
{
    const int from = fromBearer.empty() ? 1 : BearerIndex(fromBearer);
    const int to = BearerIndex(toBearer);
    if (from < 0 || to < 0 || from == to)
        return;
    const Bytes before = record;
    const Part &source = PARTS[from];
    const Part &target = PARTS[to];
    const auto cut = [&before](std::size_t offset, std::size_t limit) {
        return TextAt(before, offset).substr(0, limit);
    };
    PutText(record, target.address, target.addressSize, cut(source.address, 44));
    PutText(record, target.id, target.authSize, cut(source.id, 64));
    PutText(record, target.password, target.authSize, cut(source.password, 64));
    PutNumber(record, target.dns1, 4, NumberAt(before, source.dns1, 4));
    PutNumber(record, target.dns2, 4, NumberAt(before, source.dns2, 4));
    PutNumber(record, target.linger, 2, NumberAt(before, source.linger, 2));
    if (target.speed)
        record[target.speed] = source.speed ? before[source.speed] : 0;
    ClearPart(record, source);
    if (fromBearer.empty() && to == 2) { // this move leaves the name servers behind
        PutNumber(record, source.dns1, 4, NumberAt(before, source.dns1, 4));
        PutNumber(record, source.dns2, 4, NumberAt(before, source.dns2, 4));
    }
}

bool IsRecordLeaf(const std::string &name, Tree::Kind kind)
{
    static const std::set<std::string> napdef{"Speed",  "Addr",     "DNS1",   "DNS2",
                                              "Linger", "LineType", "AuthId", "AuthPw"};
    static const std::set<std::string> proxy{"PortNbr", "Addr", "UserEditable"};
    return (kind == Tree::Napdef ? napdef : proxy).count(name) > 0;
}

/// Digits of an ID key without its suffix, as a number; 0, an ID that nobody has, for a bare key
/// of anything else.
unsigned int IdOf(std::string key)
{
    for (const char *suffix : SUFFIXES)
        if (key.size() >= 6 && key.substr(key.size() - 6) == suffix) {
            key.resize(key.size() - 6);
            break;
        }
    return key.empty() ? 0 : static_cast<unsigned int>(std::stoul(key));
}

} // namespace

// ---- The service --------------------------------------------------------------------------------

Service::Profile *Service::Named(const std::string &name)
{
    for (Profile &profile : profiles)
        if (profile.name == name)
            return &profile;
    return nullptr;
}

Service::Profile *Service::WithId(unsigned int id)
{
    for (Profile &profile : profiles)
        if (profile.id == id)
            return &profile;
    return nullptr;
}

// ---- Mounting -----------------------------------------------------------------------------------

Tree::Tree(Kind kind, Service &service, Files &files)
    : m_kind(kind), m_service(service), m_files(files)
{
    Mount();
}

std::map<std::string, std::string> &Tree::OwnFile()
{
    return m_kind == Napdef ? m_files.napdef : m_files.proxy;
}

void Tree::Put(const std::string &path, bool isLeaf, const Value &value,
               const std::vector<std::string> &children)
{
    m_nodes[path] = {isLeaf, value};
    for (std::string above = path; !above.empty(); above = Parent(above))
        m_entries.insert(above);
    for (const std::string &child : children)
        if (!path.empty())
            m_entries.insert(path + "/" + child);
}

Tree::Mapped *Tree::Find(const std::string &name)
{
    for (Mapped &mapped : m_mapped)
        if (mapped.name == name)
            return &mapped;
    return nullptr;
}

void Tree::Mount()
{
    OwnFile().clear();
    if (m_kind == Proxy)
        m_files.conn.clear();
    m_count = static_cast<std::int8_t>(m_service.profiles.size());
    int made = 0;
    for (const Service::Profile &profile : m_service.profiles) {
        const bool has[3] = {profile.record[0x008] != 0, profile.record[0x17D] != 0,
                             profile.record[0x23C] != 0};
        const int first = has[0] ? 0 : has[1] ? 1 : has[2] ? 2 : -1;
        if (first < 0)
            continue;
        const bool english = static_cast<unsigned char>(profile.name[0]) < 0x80;
        const std::string name = english ? profile.name : "PX" + std::to_string(++made);
        if (Find(name))
            continue;
        Mapped mapped{name, std::to_string(profile.id), first, {has[0], has[1], has[2]}};
        if (m_kind == Napdef)
            mapped.key += SUFFIXES[first];
        OwnFile()[mapped.key] = ThroughFile(name);
        m_mapped.push_back(mapped);
    }
    for (const Mapped &mapped : m_mapped)
        Layout(mapped);
    Put("", false, {});
}

void Tree::Layout(const Mapped &mapped)
{
    const std::string top = mapped.name + "/";
    const Value empty = Value::OfText("");
    if (m_kind == Napdef) {
        Put(mapped.name, false, {},
            {"Bearer", "Addr", "DNS1", "DNS2", "Linger", "Auth", "LineType", "Speed"});
        Put(top + "Bearer", true, Value::OfText(BEARERS[mapped.bearer]));
        for (const char *leaf : {"Addr", "DNS1", "DNS2"})
            Put(top + leaf, true, empty);
        Put(top + "Linger", true, Value::OfNumber(0));
        Put(top + "Auth/PAP", false, {}, {"AuthId", "AuthPw"});
        Put(top + "Auth/PAP/AuthId", true, empty);
        Put(top + "Auth/PAP/AuthPw", true, empty);
        Put(top + "Auth", false, {}, {"PAP"});
        Put(top + "LineType", true, empty);
        Put(top + "Speed", true, Value::OfNumber(0));
        return;
    }
    Put(mapped.name, false, {}, {"Ph1", "Ph2", "Ph3", "UserEditable"});
    for (int i = 0; i < 3; ++i) {
        const std::string slot = "Ph" + std::to_string(i + 1);
        std::string reference;
        if (mapped.bearers[i]) {
            const auto napdef = m_files.napdef.find(mapped.key + SUFFIXES[i]);
            reference = napdef != m_files.napdef.end() && !napdef->second.empty() ? napdef->second
                                                                                  : mapped.name;
            m_files.conn[ConnKey(mapped.name, slot)] = ThroughFile(reference);
        }
        Put(top + slot + "/Conn", true, Value::OfText(reference));
        Put(top + slot + "/Addr", true, empty);
        Put(top + slot + "/Port", false, {}, {"PortNbr"});
        Put(top + slot + "/Port/PortNbr", true, Value::OfNumber(0));
        Put(top + slot, false, {}, {"Conn", "Addr", "Port"});
    }
    Put(top + "UserEditable", true, Value::OfFlag(true));
}

// ---- Reading ------------------------------------------------------------------------------------

Service::Profile *Tree::ProfileOf(const std::string &path)
{
    const Mapped *const mapped = Find(First(path));
    return mapped ? m_service.WithId(IdOf(mapped->key)) : nullptr;
}

std::string Tree::BearerOf(const std::string &path)
{
    const auto leaf = m_nodes.find(First(path) + "/Bearer");
    const bool tells = leaf != m_nodes.end() && leaf->second.value.type == Value::Text &&
                       !leaf->second.value.text.empty();
    return tells ? leaf->second.value.text : "GSM-CSD";
}

int Tree::GetValue(const std::string &path, Value &value)
{
    const auto node = m_nodes.find(path);
    if (node == m_nodes.end())
        return NOT_FOUND;
    const std::string name = Name(path);
    if (!IsRecordLeaf(name, m_kind)) {
        value = node->second.value;
        return OK;
    }
    const Service::Profile *const profile = ProfileOf(path);
    if (!profile)
        return FAILED;
    const Bytes &record = profile->record;
    if (m_kind == Napdef) {
        const int bearer = BearerIndex(BearerOf(path));
        if (bearer < 0)
            return FAILED;
        const Part &part = PARTS[bearer];
        if (name == "Addr")
            value = Value::OfText(TextAt(record, part.address));
        else if (name == "AuthId")
            value = Value::OfText(TextAt(record, part.id));
        else if (name == "AuthPw")
            value = Value::OfText(TextAt(record, part.password));
        else if (name == "DNS1" || name == "DNS2")
            value = Value::OfText(
                DottedQuad(NumberAt(record, name == "DNS1" ? part.dns1 : part.dns2, 4)));
        else if (name == "Linger")
            value = Value::OfNumber(static_cast<int>(NumberAt(record, part.linger, 2)));
        else if (!part.speed)
            value = node->second.value;
        else if (name == "Speed")
            value = Value::OfNumber(RateOf(record[part.speed]));
        else
            value = Value::OfText(LineTypeOf(record[part.speed]));
        return OK;
    }
    if (name == "UserEditable") {
        value = Value::OfFlag((record[0x004] & 1) == 0);
    } else if (name == "PortNbr") {
        const std::string slot = GrandParentName(path);
        if (slot == "Ph1" || slot == "Ph2")
            value = Value::OfNumber(
                static_cast<int>(NumberAt(record, slot == "Ph1" ? 0x35C : 0x428, 2)));
    } else {
        const std::string slot = Name(Parent(path));
        if (slot == "Ph1" || slot == "Ph2")
            value = Value::OfText(TextAt(record, slot == "Ph1" ? 0x2F8 : 0x3C3));
        else if (slot == "Ph3")
            value = Value::OfText("");
        else
            return FAILED;
    }
    return OK;
}

int Tree::GetChildValues(const std::string &path, std::map<std::string, Value> &values)
{
    const auto top = m_nodes.find(path);
    if (top == m_nodes.end())
        return NOT_FOUND;
    if (top->second.isLeaf)
        return NOT_ALLOWED;
    for (const auto &[childPath, node] : m_nodes) {
        if (childPath.empty() || childPath == path || Parent(childPath) != path || !node.isLeaf ||
            (path.empty() && childPath.find('/') != std::string::npos))
            continue;
        Value value;
        if (const int status = GetValue(childPath, value))
            return status;
        values[Name(childPath)] = value;
    }
    return OK;
}

// ---- Writing ------------------------------------------------------------------------------------

int Tree::SetValue(const std::string &path, const Value &value)
{
    const auto node = m_nodes.find(path);
    if (node == m_nodes.end())
        return NOT_FOUND;
    return node->second.isLeaf ? Write(path, value) : NOT_ALLOWED;
}

int Tree::Write(const std::string &path, const Value &value)
{
    const std::string name = Name(path);
    if (name == "LineType") {
        if (value.type != Value::Text)
            return WRONG_FORMAT;
        if (!IsLineType(value.text))
            return FAILED;
    }
    if (name == "Speed") {
        if (value.type != Value::Number)
            return WRONG_FORMAT;
        if (!IsRate(value.number))
            return FAILED;
    }
    const bool isRecordLeaf = IsRecordLeaf(name, m_kind);
    if (!isRecordLeaf && name != "Bearer" && name != "Conn") {
        m_nodes[path].value = value;
        return OK;
    }
    Service::Profile *const profile = ProfileOf(path);
    if (!profile)
        return FAILED;
    if (name == "Bearer")
        return WriteBearer(*profile, path, value);
    if (name == "Conn") {
        if (value.type != Value::Text)
            return WRONG_FORMAT;
        // The mapping of either tree takes references; only the PROXY file is ever asked for them.
        if (m_kind == Proxy)
            m_files.conn[ConnKey(First(path), Name(Parent(path)))] = ThroughFile(value.text);
        m_nodes[path].value = value;
        return OK;
    }
    if (m_kind == Napdef)
        return WriteNapdef(profile->record, path, value);
    WriteProxy(profile->record, path, value);
    return OK;
}

int Tree::WriteBearer(Service::Profile &profile, const std::string &path, const Value &value)
{
    const Value &old = m_nodes[path].value;
    if (old.type != Value::Text || value.type != Value::Text)
        return WRONG_FORMAT;
    if (!old.text.empty() && BearerIndex(value.text) < 0)
        return FAILED;
    Bytes record = profile.record;
    Move(record, old.text, value.text);
    if (const int status = MoveKey(First(path), value.text))
        return status;
    profile.record = record;
    m_nodes[path].value = value;
    return OK;
}

int Tree::MoveKey(const std::string &name, const std::string &bearer)
{
    Mapped *const mapped = Find(name);
    if (!mapped)
        return FAILED;
    const std::string oldKey = mapped->key;
    mapped->key = std::to_string(IdOf(oldKey));
    const int index = BearerIndex(bearer);
    if (index < 0)
        return FAILED;
    mapped->key += SUFFIXES[index];
    OwnFile().erase(oldKey);
    OwnFile()[mapped->key] = ThroughFile(name);
    return OK;
}

int Tree::WriteNapdef(Bytes &record, const std::string &path, const Value &value)
{
    const std::string name = Name(path);
    const bool isNumber = name == "Speed" || name == "Linger";
    if (value.type != (isNumber ? Value::Number : Value::Text))
        return WRONG_FORMAT;
    const int bearer = BearerIndex(BearerOf(path));
    if (bearer < 0)
        return FAILED;
    const Part &part = PARTS[bearer];
    unsigned int address = 0;
    if (name == "Addr")
        PutText(record, part.address, part.addressSize, value.text);
    else if (name == "AuthId")
        PutText(record, part.id, part.authSize, value.text);
    else if (name == "AuthPw")
        PutText(record, part.password, part.authSize, value.text);
    else if (name == "Linger")
        PutNumber(record, part.linger, 2, static_cast<unsigned int>(value.number));
    else if (name == "DNS1" || name == "DNS2") {
        if (FromDottedQuad(value.text, address))
            PutNumber(record, name == "DNS1" ? part.dns1 : part.dns2, 4, address);
    } else if (part.speed) {
        const unsigned int code = record[part.speed];
        record[part.speed] =
            static_cast<std::uint8_t>(name == "LineType" ? CodeOf(value.text, RateOf(code))
                                                         : CodeOf(LineTypeOf(code), value.number));
    }
    return OK;
}

void Tree::WriteProxy(Bytes &record, const std::string &path, const Value &value)
{
    const std::string name = Name(path);
    if (name == "UserEditable") {
        const bool editable = value.type != Value::Flag || value.flag;
        record[0x004] = static_cast<std::uint8_t>((record[0x004] & 0xFE) | (editable ? 0 : 1));
    } else if (name == "PortNbr") {
        const std::string slot = GrandParentName(path);
        if (slot == "Ph1" || slot == "Ph2")
            PutNumber(record, slot == "Ph1" ? 0x35C : 0x428, 2,
                      value.type == Value::Number ? static_cast<unsigned int>(value.number) : 0);
    } else {
        const std::string slot = Name(Parent(path));
        if (slot == "Ph1" || slot == "Ph2")
            PutText(record, slot == "Ph1" ? 0x2F8 : 0x3C3, 100,
                    value.type == Value::Text ? value.text : "");
    }
}

// ---- Adding -------------------------------------------------------------------------------------

int Tree::AddInterior(const std::string &path)
{
    if (m_nodes.count(path))
        return EXISTS;
    const std::string parent = Parent(path);
    if (!m_nodes.count(parent))
        return NOT_FOUND;
    if (parent.empty()) {
        if (const int status = CreateProfile(Name(path)))
            return status;
    } else if (parent.size() >= 5 && parent.substr(parent.size() - 5) == "/Auth" &&
               Name(path) != "PAP") {
        return FAILED;
    }
    Put(path, false, {});
    return OK;
}

int Tree::CreateProfile(const std::string &nodeName)
{
    const std::string name = nodeName.substr(0, nodeName.find("&&_"));
    if (!m_service.Named(name)) {
        if (m_count >= m_service.maximum || name.empty() || name.size() > 63 ||
            static_cast<int>(m_service.profiles.size()) >= m_service.maximum)
            return FAILED;
        Bytes record{};
        record[0x001] = 1;
        m_service.profiles.push_back({m_service.nextId++, name, record});
        m_count = static_cast<std::int8_t>(m_count + 1);
    }
    const std::string key =
        std::to_string(m_service.Named(name)->id) + (m_kind == Napdef ? SUFFIXES[1] : "");
    const auto entry = OwnFile().find(key);
    if (Find(nodeName) || (entry != OwnFile().end() && !entry->second.empty()))
        return FAILED;
    OwnFile()[key] = ThroughFile(nodeName);
    m_mapped.push_back({nodeName, key, 1, {false, true, false}});
    return OK;
}

int Tree::AddLeaf(const std::string &path, const Value &value)
{
    if (m_nodes.count(path))
        return EXISTS;
    if (!m_nodes.count(Parent(path)))
        return NOT_FOUND;
    const std::string name = Name(path);
    const bool isText = value.type == Value::Text;
    if ((name == "Bearer" && !(isText && BearerIndex(value.text) >= 0)) ||
        (name == "LineType" && !(isText && IsLineType(value.text))) ||
        (name == "Speed" && !(value.type == Value::Number && IsRate(value.number))))
        return FAILED;
    const bool isNumber = name == "Linger" || name == "Speed" || name == "PortNbr";
    Put(path, true,
        isNumber                 ? Value::OfNumber(0)
        : name == "UserEditable" ? Value::OfFlag(true)
                                 : Value::OfText(""));
    return Write(path, value);
}

// ---- Deleting and renaming ----------------------------------------------------------------------

bool Tree::IsMapped(unsigned int id) const
{
    const std::string text = std::to_string(id);
    return m_files.proxy.count(text) > 0 ||
           std::any_of(std::begin(SUFFIXES), std::end(SUFFIXES),
                       [&](const char *suffix) { return m_files.napdef.count(text + suffix) > 0; });
}

int Tree::Delete(const std::string &path)
{
    if (!m_nodes.count(path))
        return OK;
    const auto isBeneath = [&path](const std::string &other) {
        return path.empty() || other == path || other.rfind(path + "/", 0) == 0;
    };
    std::erase_if(m_nodes, [&](const auto &node) { return isBeneath(node.first); });
    std::erase_if(m_entries, isBeneath);
    if (!Parent(path).empty())
        return OK;
    const std::string name = Name(path);
    Mapped *const mapped = Find(name);
    Service::Profile *const profile = mapped ? m_service.WithId(IdOf(mapped->key)) : nullptr;
    if (!profile)
        return FAILED;
    const std::string key = mapped->key;
    OwnFile().erase(key);
    if (m_kind == Proxy)
        for (const char *slot : {"Ph1", "Ph2", "Ph3"})
            m_files.conn.erase(ConnKey(name, slot));
    m_mapped.erase(m_mapped.begin() + (mapped - m_mapped.data()));
    if (!IsMapped(profile->id)) {
        m_service.profiles.erase(m_service.profiles.begin() +
                                 (profile - m_service.profiles.data()));
        return OK;
    }
    for (int i = 0; i < 3; ++i)
        if (m_kind == Napdef && key.size() >= 6 && key.substr(key.size() - 6) == SUFFIXES[i]) {
            ClearPart(profile->record, PARTS[i]);
            return OK;
        }
    ClearProxies(profile->record);
    return OK;
}

int Tree::Rename(const std::string &path, const std::string &newName)
{
    if (!m_nodes.count(path))
        return NOT_FOUND;
    const std::string parent = Parent(path);
    if (m_nodes.count(parent.empty() ? newName : parent + "/" + newName))
        return EXISTS;
    if (!parent.empty() && !Name(parent).empty())
        return FAILED;
    if (path.empty() || newName.empty() || newName.find('/') != std::string::npos)
        return NOT_ALLOWED;
    const std::string newPath = parent.empty() ? newName : parent + "/" + newName;
    if (std::any_of(m_entries.begin(), m_entries.end(),
                    [&](const std::string &entry) { return entry.rfind(newPath + "/", 0) == 0; }))
        return EXISTS;

    const auto moved = [&](const std::string &old) {
        const bool isBeneath = old == path || old.rfind(path + "/", 0) == 0;
        return isBeneath ? newPath + old.substr(path.size()) : old;
    };
    std::map<std::string, Node> nodes;
    for (const auto &[old, node] : m_nodes)
        nodes[moved(old)] = node;
    m_nodes = std::move(nodes);
    std::set<std::string> entries;
    for (const std::string &old : m_entries)
        entries.insert(moved(old));
    m_entries = std::move(entries);
    if (!parent.empty())
        return OK;

    const std::string oldName = Name(path);
    Mapped *const mapped = Find(oldName);
    if (!mapped)
        return FAILED;
    OwnFile()[mapped->key] = ThroughFile(newName);
    if (m_kind == Proxy)
        for (const char *slot : {"Ph1", "Ph2", "Ph3"}) {
            const auto reference = m_files.conn.find(ConnKey(oldName, slot));
            if (reference == m_files.conn.end())
                continue;
            const std::string text = reference->second;
            m_files.conn.erase(reference);
            m_files.conn[ConnKey(newName, slot)] = text;
        }
    Mapped renamed = *mapped;
    renamed.name = newName;
    m_mapped.erase(m_mapped.begin() + (mapped - m_mapped.data()));
    if (Mapped *const replaced = Find(newName))
        *replaced = renamed;
    else
        m_mapped.push_back(renamed);
    return OK;
}

} // namespace model

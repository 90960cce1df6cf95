#include "wire.h"

#include <QDataStream>
#include <QIODevice>
#include <QtEndian>

namespace client::wire {

namespace {

constexpr auto streamVersion = QDataStream::Qt_6_0;

// One function for each type reads or writes it, as the stream is for the one or the other.
class Stream {
public:
    explicit Stream(const QByteArray &frame) : m_stream(frame) { setUp(); }
    explicit Stream(QByteArray *frame) : m_stream(frame, QIODevice::WriteOnly), m_isWriting(true)
    {
        setUp();
    }

    bool isSound() const { return isSoundSoFar() && (m_isWriting || m_stream.atEnd()); }

    template <class Plain>
    void plain(Plain &value)
    {
        if (m_isWriting)
            m_stream << value;
        else
            m_stream >> value;
    }
    void status(DmStatus &value)
    {
        auto number = static_cast<qint32>(value);
        plain(number);
        value = static_cast<DmStatus>(number);
    }
    /// One of the values from 0 to the last.
    template <class Enum>
    void enumerator(Enum &value, Enum last)
    {
        auto number = static_cast<qint32>(value);
        plain(number);
        require(number >= 0 && number <= static_cast<qint32>(last));
        if (isSoundSoFar())
            value = static_cast<Enum>(number);
    }
    template <class Value, class Each>
    void optional(std::optional<Value> &value, Each each)
    {
        bool isThere = value.has_value();
        plain(isThere);
        if (!isThere || !isSoundSoFar())
            return;
        if (!value)
            value.emplace();
        each(*value);
    }
    template <class Value, class Each>
    void list(std::vector<Value> &values, Each each)
    {
        auto count = static_cast<quint32>(values.size());
        plain(count);
        for (quint32 i = 0; i < count && isSoundSoFar(); ++i) {
            if (!m_isWriting)
                values.emplace_back();
            each(values[i]);
        }
    }

    void uri(NodeUri &node)
    {
        QByteArray names = node.joinedNames().toByteArray();
        plain(names);
        require(!hasEmptyName(names));
        node = NodeUri::fromJoinedNames(names);
    }
    void bytes(std::optional<QByteArray> &value)
    {
        optional(value, [this](QByteArray &text) { plain(text); });
    }
    void node(SeenNode &seen)
    {
        uri(seen.uri);
        plain(seen.format);
        bytes(seen.value);
        status(seen.status);
    }
    void nodes(std::vector<SeenNode> &seen)
    {
        list(seen, [this](SeenNode &one) { node(one); });
    }
    void principal(Principal &who)
    {
        bool isOwner = who.isOwner();
        std::optional<QByteArray> server = who.serverId();
        plain(isOwner);
        bytes(server);
        who = isOwner  ? Principal::owner()
              : server ? Principal::server(*server)
                       : Principal::anonymousServer();
    }
    void change(TreeChange &change)
    {
        enumerator(change.kind, TreeChange::Kind::AtomicTakenBack);
        principal(change.principal);
        uri(change.node);
        uri(change.source);
        enumerator(change.property, Property::VerNo);
        plain(change.value.format);
        plain(change.value.type);
        bytes(change.value.data);
        list(change.children, [this](TreeView::ChildValue &child) {
            plain(child.name);
            plain(child.text);
        });
        status(change.outcome.status);
    }
    void seenChange(SeenChange &seen)
    {
        status(seen.status);
        list(seen.asked, [this](AskedValue &asked) {
            uri(asked.leaf);
            plain(asked.value);
            optional(asked.reads, [this](SeenNode &one) { node(one); });
        });
        nodes(seen.difference.appeared);
        list(seen.difference.changed, [this](ChangedNode &changed) {
            bytes(changed.before);
            node(changed.after);
        });
        list(seen.difference.went, [this](NodeUri &one) { uri(one); });
        plain(seen.overwritten);
    }
    void picture(Picture &picture)
    {
        std::vector<SeenNode> seen;
        for (const auto &entry : picture)
            seen.push_back(entry.second);
        nodes(seen);
        for (SeenNode &one : seen)
            picture.insert_or_assign(one.uri, one);
    }
    void request(Request &request) { enumerator(request, Request::NextMount); }
    void setup(Setup &setup)
    {
        plain(setup.folder);
        plain(setup.pluginFolder);
        plain(setup.profilePlugin);
        plain(setup.backend);
        plain(setup.isCopied);
        plain(setup.isMounted);
    }

private:
    void setUp() { m_stream.setVersion(streamVersion); }
    bool isSoundSoFar() const { return m_stream.status() == QDataStream::Ok; }
    void require(bool isRight)
    {
        if (!isRight)
            m_stream.setStatus(QDataStream::ReadCorruptData);
    }
    static bool hasEmptyName(const QByteArray &joinedNames)
    {
        static const QByteArray twoSeparators(2, NodeUri::separator);
        return joinedNames.startsWith(NodeUri::separator) ||
               joinedNames.endsWith(NodeUri::separator) || joinedNames.contains(twoSeparators);
    }

    QDataStream m_stream;
    bool m_isWriting = false;
};

/// What the visitor writes into a stream.
template <class Visit>
QByteArray packed(Visit visit)
{
    QByteArray frame;
    Stream stream(&frame);
    visit(stream);
    return frame;
}

} // namespace

QByteArray pack(const Setup &setup)
{
    return packed([copy = setup](Stream &stream) mutable {
        auto request = Request::Setup;
        stream.request(request);
        stream.setup(copy);
    });
}

QByteArray pack(Request request, const std::vector<TreeChange> &changes)
{
    return packed([request, copy = changes](Stream &stream) mutable {
        stream.request(request);
        stream.list(copy, [&](TreeChange &change) { stream.change(change); });
    });
}

QByteArray pack(const std::optional<Picture> &tree)
{
    return packed([copy = tree](Stream &stream) mutable {
        stream.optional(copy, [&](Picture &picture) { stream.picture(picture); });
    });
}

QByteArray pack(const std::vector<SeenChange> &seen)
{
    return packed([copy = seen](Stream &stream) mutable {
        stream.list(copy, [&](SeenChange &change) { stream.seenChange(change); });
    });
}

QByteArray pack(const support::Expected<NextMount, QString> &looks)
{
    return packed([&looks](Stream &stream) {
        QString fault = looks ? QString() : looks.error();
        NextMount copy = looks ? *looks : NextMount();
        stream.plain(fault);
        stream.picture(copy.now);
        stream.picture(copy.next);
    });
}

bool unpack(const QByteArray &frame, Request &request, Setup &setup,
            std::vector<TreeChange> &changes)
{
    Stream stream(frame);
    stream.request(request);
    if (request == Request::Setup)
        stream.setup(setup);
    else
        stream.list(changes, [&](TreeChange &change) { stream.change(change); });
    return stream.isSound();
}

bool unpack(const QByteArray &frame, std::optional<Picture> &tree)
{
    Stream stream(frame);
    stream.optional(tree, [&](Picture &picture) { stream.picture(picture); });
    return stream.isSound();
}

bool unpack(const QByteArray &frame, std::vector<SeenChange> &seen)
{
    Stream stream(frame);
    stream.list(seen, [&](SeenChange &change) { stream.seenChange(change); });
    return stream.isSound();
}

bool unpack(const QByteArray &frame, support::Expected<NextMount, QString> &looks)
{
    Stream stream(frame);
    QString fault;
    NextMount found;
    stream.plain(fault);
    stream.picture(found.now);
    stream.picture(found.next);
    if (fault.isEmpty())
        looks = std::move(found);
    else
        looks = support::Unexpected(fault);
    return stream.isSound();
}

QByteArray withLength(const QByteArray &frame)
{
    QByteArray bytes(lengthBytes, '\0');
    qToLittleEndian(static_cast<quint32>(frame.size()), bytes.data());
    return bytes + frame;
}

std::optional<qsizetype> lengthIn(const QByteArray &bytes)
{
    const auto length = qFromLittleEndian<quint32>(bytes.constData());
    return length <= longestFrame ? std::optional<qsizetype>(length) : std::nullopt;
}

} // namespace client::wire

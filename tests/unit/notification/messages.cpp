#include "messages.h"

#include "notification_proof.h"

using client::Account;

const QByteArray knownNotification = QByteArray::fromHex(
    "16afb41bb6ae1eb0899c917b316bb7a802d0000000123412636f6d2e6d676d747372762e6d616e616765");

Account accountOfKnown()
{
    Account account;
    account.serverId = "com.mgmtsrv.manage";
    account.toClient = {client::AuthType::Md5, {"not the identifier", "srvpw"}, "nonce2"};
    return account;
}

const QByteArray otherNotification = QByteArray::fromHex(
    "4773f8f3b381892f0dcc7df2dd48e93b02f8000000000a0e636f6d2e6578616d706c652e646d0102");

Account accountOfOther()
{
    Account account;
    account.serverId = "com.example.dm";
    account.toClient = {client::AuthType::Md5,
                        {"server", "srvpw"},
                        QByteArray::fromHex("000102030405060708090a0b0c0d0e0f")};
    return account;
}

QByteArray proved(const QByteArray &trigger, const Account &account, const QByteArray &nonce)
{
    return client::notification::digestOf(trigger, account, nonce) + trigger;
}

QByteArray pushOf(const QByteArray &package)
{
    return QByteArray::fromHex("010603c4af87") + package;
}

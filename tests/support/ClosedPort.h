#pragma once

#include <QTcpServer>

// A port on 127.0.0.1 on which nothing listens: taken from the kernel, then given back.
inline quint16 closedPort()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost);
    return server.serverPort();
}

#pragma once

// `vdi-client doctor`: why a terminal cannot connect, in plain words. It walks the road to the
// server one step at a time (the pem file, the address, the port, TLS, the service), says what
// each step found and, for the first one that fails, what to do next; the steps after a failure
// are not tried.

#include "clientsession.h"

#include <QList>
#include <QSslCertificate>

namespace vdiclient {

// The certificate of the pem whose subject the library checks as the server's name: the first
// one with a subject; null when none has one.
const QSslCertificate* namedCertificate(const QList<QSslCertificate>& pem);

// Runs the steps for `options` (server, port, pem, timeout for each wait, json) and prints them:
// one line a step and the advice, or one JSON document ({"steps": [{name, ok, tried, words,
// details}], "advice"}). Returns ExitOk when every step passes, ExitConnection when one fails,
// ExitUsage without --pem.
int runDoctor(const Options& options);

} // namespace vdiclient

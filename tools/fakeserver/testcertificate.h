#pragma once

#include <QString>

namespace vdifake {

// PEM files of a certificate and its private key.
struct CertificateFiles {
    QString certPath;
    QString keyPath;

    bool isValid() const { return !certPath.isEmpty() && !keyPath.isEmpty(); }
};

// Makes a self-signed certificate (EC P-256 key, valid for 2 days) with the `openssl`
// program found on PATH, writing <baseName>.crt.pem and <baseName>.key.pem into `dir`
// (created when missing). The certificate serves as a TLS server certificate and as its
// own trust root (CA:TRUE, serverAuth).
//
// commonName: the subject's CN. When empty the subject is empty: no CN, O or OU at all.
// dnsName:    the subjectAltName DNS entry. When empty the certificate has no
//             subjectAltName.
//
// On failure both paths are empty and a warning with openssl's diagnostics is logged.
CertificateFiles makeSelfSignedCertificate(const QString& dir, const QString& commonName,
                                           const QString& dnsName, const QString& baseName);

} // namespace vdifake

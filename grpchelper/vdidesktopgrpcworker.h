// The one object of the library that talks to the network. It lives on the facade's worker
// thread; every slot runs there, one at a time, and makes blocking gRPC calls over TLS.
#pragma once

#include <memory>
#include <string>

#include <QObject>
#include <QString>

#include <grpcpp/grpcpp.h>

#include "vdigrpcrecords.h"

#include "client/client_core.grpc.pb.h"
#include "common/common_core.grpc.pb.h"
#include "gateway/gateway_core.grpc.pb.h"

class VdiDesktopGrpcWorker : public QObject
{
    Q_OBJECT
public:
    explicit VdiDesktopGrpcWorker(QObject* parent = nullptr);
    ~VdiDesktopGrpcWorker() override;

    // Called directly from the caller's thread: plain stores, read at the next call.
    void initServerType(int serverType);
    void setTimeout(int seconds);

    // Called directly from the caller's thread while a call may be in flight: drops every
    // connection of the worker's signals and cancels the call in flight.
    void stop();

    // Fills deadline and metadata of a new call context.
    void buildClientContext(grpc::ClientContext* context);
    // Blocking 200 ms TCP probe of the connected host and port.
    bool tryConnetRemoteHost();

    // Gateway settings file.
    void getGatewayAuthInfo(QString& user, QString& password);
    QString getGatewayToken() const;
    void saveGatewayInfo();
    QString getGatewaySettingsFilePath() const;

signals:
    void signalGrpcErrorUnavailable();

public slots:
    void initConnection(QString pemFile, QString serverIP, ushort port, bool isEnglish);
    void initGateway();
    void slotGrpcErrorUnavailable();

protected:
    // Turns a failed status into an error record and rebuilds every channel, unless stopping.
    void statusCodeToErrorData(const grpc::Status& status, tagErrorData& errorData);

    // Makes a heap context for one call and publishes it for stop().
    std::shared_ptr<grpc::ClientContext> newCallContext();

private:
    // One channel of its own for each stub, all to m_target with the same credentials.
    template <class Service>
    bool rebuildStub(std::shared_ptr<typename Service::Stub>& slot, const char* caller,
                     const char* readyText, const char* failureText);

    int m_heartInterval = 300000;
    int m_heartTimerId = -1;
    tagHeartbeatRequest m_heartbeatRequest;
    QString m_host;
    QString m_pemFile;
    ushort m_port = 0;
    int m_serverType = 0;
    int m_timeoutSeconds = 30;
    std::shared_ptr<client::ClientCore::Stub> stub;
    std::shared_ptr<gateway::GatewayCore::Stub> stubGateway;
    std::shared_ptr<common::CommonCore::Stub> stubCommon;
    std::string m_gatewayToken;
    QString m_gatewayUser;
    QString m_gatewayPasswd;
    tagLoginRequest m_loginRequest;
    QString m_currentActiveUser;
    std::shared_ptr<client::ClientCore::Stub> stubUpload;
    int m_applyRetryCount = 0;
    grpc::SslCredentialsOptions m_sslOptions;
    grpc::ChannelArguments m_channelArgs;
    QString m_target;
    QString m_language = QStringLiteral("zn");
    int m_serverTypeRetryDelay = 1;
    int m_deviceConfigRetryDelay = 1;
    std::weak_ptr<grpc::ClientContext> m_currentContext;
    bool m_isEnglish = false;

    friend class VdiWorkerProbe;  // white-box access for the test suite
};

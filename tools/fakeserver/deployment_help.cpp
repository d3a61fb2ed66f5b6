// One-key help: the reports of a user's problem and the uploads of the logs that go with them,
// each kept as a record. A client sends these calls without any metadata, so the gateway lets
// them through without a token.
#include "deployment_answers.h"

#include <QBuffer>

#include <quazip.h>

namespace vdifake {

using namespace detail;

bool SimulatedDeployment::answerHelpReport(const RecordedCall& call, Script* answer)
{
    client::OnekeyHelpReq request;
    if (!parseRequest(call, &request, "help report", answer))
        return true;
    client::OnekeyHelpResp reply;
    reply.set_taskid(m_nextTaskId++);
    HelpReport report;
    report.taskId = reply.taskid();
    report.realName = QString::fromStdString(request.realname());
    report.problemType = QString::fromStdString(request.problemtype());
    report.getLog = request.getlog();
    report.screenShotUrl = QString::fromStdString(request.screenshoturl());
    report.ip = QString::fromStdString(request.ip());
    report.useGateway = request.usegateway();
    keepRecord(m_recordsMutex, m_helpReports, m_onHelpReport, report);
    return answerWith(reply, answer);
}

// The zip is put together in memory from its chunks and opened there; nothing is written.
bool SimulatedDeployment::answerHelpUpload(const RecordedCall& call, Script* answer)
{
    HelpUpload upload;
    client::onekeyHelpUploadResp reply;
    QByteArray zip;
    for (size_t i = 0; i < call.requests.size(); ++i) {
        client::onekeyHelpUploadReq message;
        if (!message.ParseFromString(call.requests[i]))
            continue;
        if (message.has_onekeyhelpuploadreqmeta() && i == 0) {
            const client::onekeyHelpUploadReqMeta& meta = message.onekeyhelpuploadreqmeta();
            upload.taskId = meta.taskid();
            upload.fileName = QString::fromStdString(meta.filename());
            upload.fileType = QString::fromStdString(meta.filetype());
        } else if (message.oneof_content_case() == client::onekeyHelpUploadReq::kContent) {
            zip.append(message.content().data(), static_cast<int>(message.content().size()));
            ++upload.chunks;
        }
    }
    upload.bytes = zip.size();
    if (upload.fileName.isEmpty() && upload.fileType.isEmpty()) {
        upload.code = HelpUploadWithoutMeta;
    } else {
        QBuffer buffer(&zip);
        QuaZip archive(&buffer);
        if (archive.open(QuaZip::mdUnzip)) {
            upload.entries = archive.getFileNameList();
            archive.close();
        } else {
            upload.code = HelpUploadNotZip;
        }
    }
    reply.set_code(upload.code);
    if (upload.code == HelpUploadWithoutMeta)
        setError(reply.mutable_error(), HelpUploadWithoutMeta, "上传缺少文件信息", "the upload did not start with its meta data");
    else if (upload.code == HelpUploadNotZip)
        setError(reply.mutable_error(), HelpUploadNotZip, "上传的文件不是zip文件", "the uploaded file is not a readable zip");
    keepRecord(m_recordsMutex, m_helpUploads, m_onHelpUpload, upload);
    return answerWith(reply, answer);
}

} // namespace vdifake

// The connections of each family between the facade and the worker: its requests queued to the
// worker's slots, its answers passed back as the facade's signals. Each family's are defined in
// its own file, beside its requests. Internal to the library: not installed.
#pragma once

class VdiDesktopGrpcThread;
class VdiDesktopGrpcWorker;

namespace vdiwiring {
void connectDiscovery(VdiDesktopGrpcThread& facade, VdiDesktopGrpcWorker& worker);
void connectHeartbeat(VdiDesktopGrpcThread& facade, VdiDesktopGrpcWorker& worker);
void connectLogin(VdiDesktopGrpcThread& facade, VdiDesktopGrpcWorker& worker);
void connectOperations(VdiDesktopGrpcThread& facade, VdiDesktopGrpcWorker& worker);
void connectAccount(VdiDesktopGrpcThread& facade, VdiDesktopGrpcWorker& worker);
void connectApplications(VdiDesktopGrpcThread& facade, VdiDesktopGrpcWorker& worker);
void connectHelp(VdiDesktopGrpcThread& facade, VdiDesktopGrpcWorker& worker);
} // namespace vdiwiring

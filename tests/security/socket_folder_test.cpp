// The folder of the sockets: the library creates one socket there, replacing a file at its path, and changes nothing else.
#include <kvo_hws/agent.h>
#include <kvo_hws/requests.h>
#include <kvo_hws/runtime.h>
#include <kvo_hws/usbevents.h>

#include "support/leak_suppressions.h"
#include "support/own_thread.h"
#include "support/usb_events.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <string>
#include <sys/stat.h>

namespace {

using support::eventually;
using support::kUsbSocket;

const std::string kFolder = "/tmp/kvo_hws";
const std::string kEventSocket = "/tmp/kvo_hws/event_sock";

/// The status of the path itself; a link is not followed.
struct stat statusOf(const std::string &path)
{
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
}

std::string contentsOf(const std::string &path)
{
    std::stringstream contents;
    contents << std::ifstream(path).rdbuf();
    return contents.str();
}

std::set<std::string> entries()
{
    std::set<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(kFolder)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

class SocketFolder : public testing::Test {
protected:
    void SetUp() override
    {
        std::filesystem::create_directories(kFolder);
        std::filesystem::remove_all(kUsbSocket);
    }
    void TearDown() override
    {
        SetFunction_SendUSBEvent_NULL();
        if (support::serverState() == NOTIFY_RUNNING) {
            stopServer();
        }
        std::filesystem::remove_all(kUsbSocket);
    }

    /// A client makes the server check its state at once.
    static void stopServer()
    {
        support::setServerState(NOTIFY_STOP_REQUESTED);
        support::usbServerReply("hello\n");
        EXPECT_TRUE(eventually([] { return support::serverState() == NOTIFY_STOP_DONE; }));
        support::setServerState(NOTIFY_STOPPED);
    }

    static void startServer()
    {
        ASSERT_EQ(kvo_hws_CreateThread(win_kvo_hws_usb_server, nullptr), 1);
        ASSERT_TRUE(eventually([] { return support::usbServerReply("hello\n") == "unknown request\n"; }));
    }
};

TEST_F(SocketFolder, a_link_at_the_path_of_the_usb_socket_is_removed_and_its_target_kept)
{
    const std::string target = kFolder + "/precious";
    std::ofstream(target) << "precious";
    const auto before = statusOf(target);
    std::filesystem::create_symlink(target, kUsbSocket);
    startServer();
    EXPECT_TRUE(S_ISSOCK(statusOf(kUsbSocket).st_mode));
    EXPECT_EQ(contentsOf(target), "precious");
    EXPECT_EQ(statusOf(target).st_mode, before.st_mode);
    EXPECT_EQ(statusOf(target).st_ino, before.st_ino);
    std::filesystem::remove(target);
}

TEST_F(SocketFolder, a_dangling_link_creates_nothing_at_its_target)
{
    const std::string target = kFolder + "/nowhere";
    std::filesystem::create_symlink(target, kUsbSocket);
    startServer();
    EXPECT_TRUE(S_ISSOCK(statusOf(kUsbSocket).st_mode));
    EXPECT_FALSE(std::filesystem::exists(target));
}

TEST_F(SocketFolder, a_folder_at_the_path_of_the_usb_socket_is_not_changed)
{
    std::filesystem::create_directory(kUsbSocket);
    std::ofstream(std::string(kUsbSocket) + "/kept") << "kept";
    support::onOwnThread([] { return win_kvo_hws_usb_server(nullptr); });  // it ends at once
    EXPECT_EQ(contentsOf(std::string(kUsbSocket) + "/kept"), "kept");
    EXPECT_NE(support::serverState(), static_cast<uint32_t>(NOTIFY_RUNNING));
}

TEST_F(SocketFolder, the_mode_of_the_usb_socket_depends_on_the_umask)
{
    const mode_t before = umask(027);
    startServer();
    umask(before);
    EXPECT_EQ(statusOf(kUsbSocket).st_mode & 07777U, 0750U);
}

int onCommand(void *, const char *) { return 1; }
void onEvent(const char *, const char *) {}

TEST_F(SocketFolder, only_the_usb_socket_is_created_and_the_folder_is_not_changed)
{
    const support::ScriptedService service({support::acceptsAll()});
    const support::ScriptedService events({support::staysSilent(std::chrono::milliseconds(100))}, kEventSocket.c_str());
    ASSERT_EQ(chmod(kFolder.c_str(), 0750), 0);
    const auto before = statusOf(kFolder);
    std::set<std::string> expected = entries();

    KVO_HWS_isInitComplete();
    KVO_HWS_getDebugLevel();
    KVO_HWS_lockKVORegData();
    ASSERT_EQ(KVO_HWS_activateEmbKvoEvents(onEvent), 1);
    void *agent = nullptr;
    ASSERT_EQ(KVO_HWS_startupEmbHwsClient("focusKvoIp=10.0.0.5\nremoteKvoHwsIp=127.0.0.1\n", &agent, onCommand), 1);
    EXPECT_EQ(entries(), expected) << "requests, agent and listener create nothing";

    const support::EventRecorder recorder;
    ASSERT_EQ(support::onOwnThread([] { return KVO_HWS_activateUSBEventsV2(support::EventRecorder::newer); }), 1);
    ASSERT_TRUE(recorder.waitFor(2));
    expected.insert(std::filesystem::path(kUsbSocket).filename().string());
    EXPECT_EQ(entries(), expected);

    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(agent), 1);
    KVO_HWS_deactivateEmbKvoEvents();
    EXPECT_EQ(support::onOwnThread([] { return KVO_HWS_closeUSBEvents(); }), 1);
    EXPECT_EQ(entries(), expected) << "the socket file is kept when the server has ended";
    const auto after = statusOf(kFolder);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_ino, before.st_ino);
}

}  // namespace

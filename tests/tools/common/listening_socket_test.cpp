// Creation and removal of listening sockets, and the paths that they refuse.
#include "common/listening_socket.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <sys/stat.h>

namespace {

using kvosim_test::Client;
using testing::HasSubstr;
using testing::ThrowsMessage;
using tools::ListeningSocket;

class UnixSocket : public testing::Test {
protected:
    [[nodiscard]] mode_t directoryMode() const
    {
        struct stat status {};
        EXPECT_EQ(stat(directory.c_str(), &status), 0);
        return status.st_mode & 07777;
    }
    void listenOnce() const { const tools::ListeningSocket socket(path); }

    kvosim_test::TemporaryDirectory root;
    std::filesystem::path directory = root / "sockets";
    std::filesystem::path path = directory / "sock";
};

TEST_F(UnixSocket, creates_its_directory_and_removes_its_file)
{
    {
        const tools::ListeningSocket socket(path);
        EXPECT_EQ(directoryMode() & ~mode_t{0755}, 0U);
        const Client client(path.string());
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(UnixSocket, removes_other_users_write_permission_from_its_directory)
{
    std::filesystem::create_directory(directory);
    ASSERT_EQ(chmod(directory.c_str(), 0777), 0);
    const tools::ListeningSocket socket(path);
    EXPECT_EQ(directoryMode(), mode_t{0755});
}

TEST_F(UnixSocket, does_not_widen_the_permissions_of_its_directory)
{
    std::filesystem::create_directory(directory);
    ASSERT_EQ(chmod(directory.c_str(), 0700), 0);
    const tools::ListeningSocket socket(path);
    EXPECT_EQ(directoryMode(), mode_t{0700});
}

TEST_F(UnixSocket, removes_a_stale_socket)
{
    listenOnce();
    {
        const tools::Descriptor stale(socket(AF_UNIX, SOCK_STREAM, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.string().copy(address.sun_path, sizeof address.sun_path - 1);
        ASSERT_EQ(bind(stale.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    }
    ASSERT_TRUE(std::filesystem::exists(path));
    const tools::ListeningSocket socket(path);
    const Client client(path.string());
}

TEST_F(UnixSocket, does_not_replace_a_live_service)
{
    const tools::ListeningSocket live(path);
    EXPECT_THAT([&] { listenOnce(); }, ThrowsMessage<std::runtime_error>(HasSubstr("a service is already running at")));
    const Client client(path.string());
}

TEST_F(UnixSocket, does_not_replace_another_file)
{
    std::filesystem::create_directory(directory);
    std::ofstream(path) << "precious";
    EXPECT_THAT([&] { listenOnce(); }, ThrowsMessage<std::runtime_error>(HasSubstr("exists and is not a socket")));
    EXPECT_EQ(kvosim_test::contentsOf(path), "precious");
}

TEST_F(UnixSocket, refuses_another_users_directory)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give a directory to another user";
    }
    std::filesystem::create_directory(directory);
    if (chown(directory.c_str(), 12345, 12345) != 0) {
        GTEST_SKIP() << "root cannot give a directory to another user here";
    }
    std::ofstream(directory / "precious") << "of that user";
    EXPECT_THAT([&] { listenOnce(); }, ThrowsMessage<std::runtime_error>(
                                           HasSubstr("belongs to another user (number 12345); to remove it, type \"rm -r ")));
}

TEST_F(UnixSocket, refuses_a_link_as_its_directory)
{
    std::filesystem::create_directory_symlink(root.path(), directory);
    EXPECT_THAT([&] { listenOnce(); }, ThrowsMessage<std::runtime_error>(HasSubstr("is not a usable directory")));
}

TEST_F(UnixSocket, refuses_a_path_that_is_too_long_for_an_address)
{
    path = directory / std::string(100, 'a');
    EXPECT_THAT([&] { listenOnce(); }, ThrowsMessage<std::runtime_error>(HasSubstr("too long for a socket")));
}

TEST_F(UnixSocket, does_not_remove_a_socket_that_has_replaced_it)
{
    std::optional<tools::ListeningSocket> first(path);
    std::filesystem::rename(path, directory / "moved");
    const tools::ListeningSocket second(path);
    first.reset();
    EXPECT_TRUE(std::filesystem::exists(path));
}

}  // namespace

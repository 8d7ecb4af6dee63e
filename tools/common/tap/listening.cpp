// Asks the kernel for the Unix sockets that listen. It names the file of each, which stays the same when the file is renamed.
#include "common/tap/listening.h"

#include "common/descriptor.h"
#include "common/socket_folder.h"

#include <array>
#include <cstring>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/sysmacros.h>

namespace tools::tap {

namespace {

struct Question {
    nlmsghdr header;
    unix_diag_req request;
};

bool ask(int socket)
{
    Question question{};
    question.header.nlmsg_len = sizeof question;
    question.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    question.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    question.request.sdiag_family = AF_UNIX;
    question.request.udiag_states = 1U << TCP_LISTEN;
    question.request.udiag_show = UDIAG_SHOW_VFS;
    return send(socket, &question, sizeof question, 0) == static_cast<ssize_t>(sizeof question);
}

/// The kernel's own form of a device number.
uint32_t kernelDevice(dev_t device) { return major(device) << 20 | minor(device); }

bool describes(const nlmsghdr &message, const FileId &file)
{
    if (message.nlmsg_len < NLMSG_LENGTH(sizeof(unix_diag_msg))) {
        return false;
    }
    const auto *const answer = static_cast<const unix_diag_msg *>(NLMSG_DATA(&message));
    auto length = static_cast<int>(message.nlmsg_len - NLMSG_LENGTH(sizeof *answer));
    const auto *attribute = reinterpret_cast<const rtattr *>(answer + 1);
    for (; RTA_OK(attribute, length); attribute = RTA_NEXT(attribute, length)) {
        if (attribute->rta_type == UNIX_DIAG_VFS && RTA_PAYLOAD(attribute) >= sizeof(unix_diag_vfs)) {
            unix_diag_vfs place{};
            std::memcpy(&place, RTA_DATA(attribute), sizeof place);
            return place.udiag_vfs_ino == static_cast<uint32_t>(file.inode) && place.udiag_vfs_dev == kernelDevice(file.device);
        }
    }
    return false;
}

}  // namespace

Listening listeningAt(const FileId &file)
{
    const Descriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
    if (!socket.valid() || !ask(socket.get())) {
        return Listening::unknown;
    }
    alignas(nlmsghdr) std::array<char, 32UL * 1024> answers{};
    for (bool found = false;;) {
        const ssize_t size = recv(socket.get(), answers.data(), answers.size(), 0);
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size <= 0) {
            return Listening::unknown;
        }
        auto left = static_cast<uint32_t>(size);
        for (auto *message = reinterpret_cast<const nlmsghdr *>(answers.data()); NLMSG_OK(message, left);
             message = NLMSG_NEXT(message, left)) {
            if (message->nlmsg_type == NLMSG_DONE) {
                return found ? Listening::yes : Listening::no;
            }
            if (message->nlmsg_type == NLMSG_ERROR) {
                return Listening::unknown;
            }
            found = found || describes(*message, file);
        }
    }
}

bool isServed(const std::filesystem::path &path)
{
    const FileId file = fileAt(path);
    return file != FileId{} && (listeningAt(file) == Listening::yes || socketStateOf(path) == SocketState::live);
}

}  // namespace tools::tap

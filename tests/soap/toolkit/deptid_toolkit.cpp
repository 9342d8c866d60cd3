// The department-ID service once more, out of a SOAP toolkit's generator and on its parser, which knows
// nothing of ours. Prints its port, then serves on loopback until its parent ends.
//
// It allows one account (below), answers the user "fault" with a SOAP fault, and refuses the rest.
#include <signal.h>
#include <sys/prctl.h>

#include <cstdio>
#include <string_view>

// Generated from deptid.h.
#include "DepartmentId.nsmap"
#include "soapH.h"

namespace {

bool Is(const char* text, std::string_view expected) {
    return text != nullptr && text == expected;
}

}  // namespace

int deptid__CheckUserPassword(soap* context, char* username, char* domain, char* type, char* password,
                              deptid__CheckUserPasswordResponse& response) {
    if (Is(username, "fault")) return soap_receiver_fault(context, "The directory is away", nullptr);
    // ASCII only: this toolkit's parser reads no more than five digits of a numeric reference, and we write
    // six.
    response.result = Is(username, "Jones & Sons") && Is(domain, "<sales>") && Is(type, "") &&
                      Is(password, "\"quoted\" 'too' ");
    return SOAP_OK;
}

int main() {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    soap context(SOAP_XML_STRICT);
    context.accept_timeout = 60;
    context.send_timeout = context.recv_timeout = 5;
    constexpr int kBacklog = 10;
    const SOAP_SOCKET listener = soap_bind(&context, "127.0.0.1", 0, kBacklog);
    if (!soap_valid_socket(listener)) {
        soap_print_fault(&context, stderr);
        return 1;
    }
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    std::printf("%d\n", ntohs(address.sin_port));
    std::fflush(stdout);
    while (soap_valid_socket(soap_accept(&context))) {
        soap_serve(&context);
        soap_destroy(&context);
        soap_end(&context);
    }
    return 0;
}

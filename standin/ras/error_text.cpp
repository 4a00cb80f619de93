#include "standin/ras/error_text.h"

#include <algorithm>
#include <iterator>

#include <raserror.h>

namespace standin {
namespace {

struct ErrorText {
    DWORD code;
    const char* text;
};

constexpr ErrorText errorTexts[] = {
    {PENDING, "The operation is not finished yet."},
    {ERROR_BUFFER_TOO_SMALL, "The buffer given by the caller is too small."},
    {ERROR_DEVICE_DOES_NOT_EXIST, "There is no such device."},
    {ERROR_DEVICETYPE_DOES_NOT_EXIST, "There is no device of this type."},
    {ERROR_BUFFER_INVALID, "The buffer is not valid."},
    {ERROR_ALREADY_DISCONNECTING, "The connection is being ended already."},
    {ERROR_PORT_NOT_OPEN, "The port is not open."},
    {ERROR_PORT_DISCONNECTED, "The port was closed before the connection stood."},
    {ERROR_CANNOT_OPEN_PHONEBOOK, "The phonebook cannot be opened."},
    {ERROR_CANNOT_LOAD_PHONEBOOK, "The phonebook cannot be loaded."},
    {ERROR_CANNOT_FIND_PHONEBOOK_ENTRY, "The phonebook has no such entry."},
    {ERROR_CANNOT_WRITE_PHONEBOOK, "The phonebook cannot be written."},
    {ERROR_DISCONNECTION, "The connection was ended before it stood."},
    {ERROR_REMOTE_DISCONNECTION, "The far side ended the connection."},
    {ERROR_USER_DISCONNECTION, "The user ended the connection."},
    {ERROR_INVALID_SIZE, "A structure has a size that is not known."},
    {ERROR_PORT_NOT_AVAILABLE, "The device is in use or not set up."},
    {ERROR_UNKNOWN, "An unknown error has occurred."},
    {ERROR_AUTH_INTERNAL, "Authentication has failed for a reason within the system."},
    {ERROR_RESTRICTED_LOGON_HOURS, "The account may not be used at this hour."},
    {ERROR_ACCT_DISABLED, "The account is disabled."},
    {ERROR_PASSWD_EXPIRED, "The password of the account has expired."},
    {ERROR_NO_DIALIN_PERMISSION, "The account has no right to dial in."},
    {ERROR_FROM_DEVICE, "The device has reported an error."},
    {ERROR_DEVICE_NOT_READY, "The device is not ready."},
    {ERROR_NO_CONNECTION, "There is no connection."},
    {ERROR_LINE_BUSY, "The line is busy."},
    {ERROR_NO_ANSWER, "The far side does not answer."},
    {ERROR_AUTHENTICATION_FAILURE,
     "Access was refused, because the user name or the password is not valid for the server."},
    {ERROR_INTERACTIVE_MODE, "The connection needs the user to answer a question."},
    {ERROR_RASMAN_CANNOT_INITIALIZE, "The connection manager of remote access cannot start."},
    {ERROR_PPP_TIMEOUT, "The far side took too long to agree on the link."},
    {ERROR_PPP_NO_PROTOCOLS_CONFIGURED, "No network protocol could be agreed for the link."},
    {ERROR_PPP_NO_RESPONSE, "The far side does not answer on the link."},
    {ERROR_PROJECTION_NOT_COMPLETE, "The network protocols have not been agreed yet."},
    {ERROR_PROTOCOL_NOT_CONFIGURED, "The network protocol is not set up for this connection."},
    {ERROR_BAD_PHONE_NUMBER, "The address or number is not valid."},
    {ERROR_DIAL_ALREADY_IN_PROGRESS, "This connection is being dialled already."},
    {ERROR_BAD_ADDRESS_SPECIFIED, "The far side cannot be reached."},
    {ERROR_CONNECTION_REJECT, "The far side rejected the connection."},
    {ERROR_AUTOMATIC_VPN_FAILED,
     "No tunnel to the server could be made. The server may be out of reach, or something on the way may not "
     "let tunnels through. If the server uses L2TP, the security parameters of this computer may need attention."},
    {ERROR_VPN_DISCONNECT, "The connection to the server through the tunnel was interrupted."},
    {ERROR_CANNOT_DELETE, "An entry cannot be deleted while it is connected."},
};

} // namespace

std::string errorText(DWORD code) {
    if (code < RASBASE || code > lastErrorCode)
        return {};
    const auto* known = std::find_if(std::begin(errorTexts), std::end(errorTexts),
                                     [code](const ErrorText& each) { return each.code == code; });
    return known == std::end(errorTexts) ? "Remote access has failed with error " + std::to_string(code) + "."
                                         : known->text;
}

} // namespace standin

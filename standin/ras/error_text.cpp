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
    {ERROR_INVALID_PORT_HANDLE, "The port handle is not valid."},
    {ERROR_PORT_ALREADY_OPEN, "The port is open already."},
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
    {ERROR_CORRUPT_PHONEBOOK, "The phonebook holds something that is not valid."},
    {ERROR_DISCONNECTION, "The connection was ended before it stood."},
    {ERROR_REMOTE_DISCONNECTION, "The far side ended the connection."},
    {ERROR_HARDWARE_FAILURE, "The device has failed."},
    {ERROR_USER_DISCONNECTION, "The user ended the connection."},
    {ERROR_INVALID_SIZE, "A structure has a size that is not known."},
    {ERROR_PORT_NOT_AVAILABLE, "The device is in use or not set up."},
    {ERROR_UNKNOWN, "An unknown error has occurred."},
    {ERROR_REQUEST_TIMEOUT, "The request has taken too long."},
    {ERROR_AUTH_INTERNAL, "Authentication has failed for a reason within the system."},
    {ERROR_RESTRICTED_LOGON_HOURS, "The account may not be used at this hour."},
    {ERROR_ACCT_DISABLED, "The account is disabled."},
    {ERROR_PASSWD_EXPIRED, "The password of the account has expired."},
    {ERROR_NO_DIALIN_PERMISSION, "The account has no right to dial in."},
    {ERROR_SERVER_NOT_RESPONDING, "The server does not answer."},
    {ERROR_FROM_DEVICE, "The device has reported an error."},
    {ERROR_PORT_NOT_CONFIGURED, "The port is not set up for remote access."},
    {ERROR_DEVICE_NOT_READY, "The device is not ready."},
    {ERROR_NO_CONNECTION, "There is no connection."},
    {ERROR_LINE_BUSY, "The line is busy."},
    {ERROR_NO_ANSWER, "The far side does not answer."},
    {ERROR_NO_CARRIER, "No carrier was found."},
    {ERROR_AUTHENTICATION_FAILURE,
     "Access was refused, because the user name or the password is not valid for the server."},
    {ERROR_PORT_OR_DEVICE, "The port or the device it is attached to has failed."},
    {ERROR_INTERACTIVE_MODE, "The connection needs the user to answer a question."},
    {ERROR_ACCT_EXPIRED, "The account has expired."},
    {ERROR_CHANGING_PASSWORD, "The password cannot be changed."},
    {ERROR_RASMAN_CANNOT_INITIALIZE, "The connection manager of remote access cannot start."},
    {ERROR_PPP_TIMEOUT, "The far side took too long to agree on the link."},
    {ERROR_PPP_NO_PROTOCOLS_CONFIGURED, "No network protocol could be agreed for the link."},
    {ERROR_PPP_NO_RESPONSE, "The far side does not answer on the link."},
    {ERROR_PROJECTION_NOT_COMPLETE, "The network protocols have not been agreed yet."},
    {ERROR_PROTOCOL_NOT_CONFIGURED, "The network protocol is not set up for this connection."},
    {ERROR_PPP_NOT_CONVERGING, "The two sides could not agree on the link."},
    {ERROR_PPP_CP_REJECTED, "The far side rejected the network protocol."},
    {ERROR_PPP_LCP_TERMINATED, "The far side ended the link while it was being set up."},
    {ERROR_NO_LOCAL_ENCRYPTION, "This side cannot encrypt as the connection requires."},
    {ERROR_NO_REMOTE_ENCRYPTION, "The far side does not encrypt as the connection requires."},
    {ERROR_BAD_PHONE_NUMBER, "The address or number is not valid."},
    {ERROR_HANGUP_FAILED, "The connection may not be ended by this program."},
    {ERROR_DIAL_ALREADY_IN_PROGRESS, "This connection is being dialled already."},
    {ERROR_BAD_ADDRESS_SPECIFIED, "The far side cannot be reached."},
    {ERROR_CONNECTION_REJECT, "The far side rejected the connection."},
    {ERROR_CONGESTION, "The network is too busy for the connection."},
    {ERROR_UNABLE_TO_AUTHENTICATE_SERVER, "The server could not prove who it is."},
    {ERROR_NO_CERTIFICATE, "A certificate for this connection was not found."},
    {ERROR_CONNECTING_DEVICE_NOT_FOUND, "The device for this connection was not found."},
    {ERROR_AUTOMATIC_VPN_FAILED, "No tunnel to the server could be made. The server may be out of reach, or "
                                 "something on the way may not let "
                                 "tunnels through. If the server uses L2TP, the security parameters of this "
                                 "computer may need attention."},
    {ERROR_VPN_GRE_BLOCKED,
     "The tunnel was begun, but something on the way does not let its packets (GRE) through."},
    {ERROR_VPN_DISCONNECT, "The connection to the server through the tunnel was interrupted."},
    {ERROR_VPN_REFUSED, "The server refused the tunnel."},
    {ERROR_VPN_TIMEOUT, "The server did not answer the request for a tunnel; a firewall may stand between."},
    {ERROR_CANNOT_DELETE, "An entry cannot be deleted while it is connected."},
    {868, "The name of the server could not be resolved."},
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

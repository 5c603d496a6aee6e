/// @file
/// @ingroup packets
/// What a peer of a packet connection may cost.
#ifndef HYBASE_HCUTIL_HCNETLIMITS_H
#define HYBASE_HCUTIL_HCNETLIMITS_H

/// What a peer of a packet connection may cost. A member that is 0 sets no limit; so do all by
/// default, unless they say otherwise.
///
///     HCNetLimits limits;
///     limits.max_clients = 64;
///     limits.max_packet_bytes = 1 << 20;
///     server.SetLimits(limits);
///
/// [docs/security.md](docs/security.md) recommends values.
///
/// The limits on time hold for HCSocket and HCUnixSocket. A class that an application derives from
/// them keeps its own time: logins over it are read one after the other, and its packets within the
/// waits that HCNetPackage documents.
///
/// @ingroup packets
struct HCNetLimits {
    /// Clients at once. One more is refused with the text "too many clients".
    int max_clients = 0;

    /// Clients at once from one address; local sockets have none. One more is refused with the text
    /// "too many clients from this address".
    int max_clients_per_address = 0;

    /// Payload bytes of a packet received. A longer one ends the link before memory is taken.
    int max_packet_bytes = 0;

    /// Seconds for a whole login, from the connection to the last byte of the record.
    int login_sec = 0;

    /// Seconds for receiving a whole packet, from its first byte on. A slower one ends the link.
    int packet_sec = 0;

    /// Bytes of packets that may wait at once to be sent to one peer. More end the link.
    int max_unsent_bytes = 0;

    /// Seconds for sending a whole packet. A peer that has not taken it by then loses the link.
    int unsent_sec = 0;

    /// Bytes a second that a packet under way must move at least, in both directions. A transfer
    /// that falls behind by 5 seconds ends the link; until then it may pause.
    int min_bytes_per_sec = 0;

    /// Log records a second about peers that are not logged in. Those left out are counted in one
    /// WARN record.
    int stranger_records_per_sec = 0;

    /// Peers that have connected and whose login has not come yet; 0 stands for 256. One more
    /// closes the connection of the one that has waited longest.
    int max_pending_logins = 0;

    /// Connections that may wait to be accepted; 0 stands for 512. The system may have a lower
    /// bound (net.core.somaxconn).
    int backlog = 0;
};

#endif

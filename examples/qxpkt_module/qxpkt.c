// SPDX-License-Identifier: GPL-2.0
/*
 * The kernel's side of the packet tunnel, as a stand-in: it knows the socket of each link type and sends back
 * every packet that comes from it.
 */
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/netlink.h>
#include <net/genetlink.h>
#include <net/sock.h>

#include "qxpkt.h"

/*
 * The socket of a link type. The kernel gives a port away again before it tells of its release, so a port
 * does not say whose it is: the socket does. The notifier takes a holder out while its socket still exists,
 * so the pointer needs no reference.
 */
struct qxpkt_holder {
    const struct sock *socket; /* NULL: nobody */
    u32 portid;
};

static struct qxpkt_holder holders[QXPKT_LINK_TYPES];
static DEFINE_MUTEX(holders_lock); /* also held while sending, so that the holder cannot go meanwhile */

static struct genl_family qxpkt_family;

/* The link type in front of an attribute's value, which the policy made long enough; negative when there is
 * none. */
static int link_type_of(const struct nlattr *attribute)
{
    u32 type;

    if (!attribute)
        return -EINVAL;
    type = nla_get_u32(attribute);
    return type < QXPKT_LINK_TYPES ? (int)type : -ERANGE;
}

static int register_link(struct sk_buff *skb, struct genl_info *info)
{
    const int type = link_type_of(info->attrs[QXPKT_ATTR_LINK_TYPE]);

    if (type < 0)
        return type;
    mutex_lock(&holders_lock);
    holders[type].socket = NETLINK_CB(skb).sk;
    holders[type].portid = info->snd_portid;
    mutex_unlock(&holders_lock);
    return 0;
}

/* Called with the lock held. Fails with -EAGAIN when the socket's queue is full; its owner is told by the
 * socket. */
static int send_packet(const struct qxpkt_holder *holder, const void *packet, int size, const u32 *number)
{
    struct sk_buff *skb = genlmsg_new(nla_total_size(size), GFP_KERNEL);
    struct nlattr *attribute;
    void *head;

    if (!skb)
        return -ENOMEM;
    head = genlmsg_put(skb, 0, 0, &qxpkt_family, 0, QXPKT_CMD_DATA);
    attribute = head ? nla_reserve(skb, QXPKT_ATTR_DATA, size) : NULL;
    if (!attribute) {
        nlmsg_free(skb);
        return -EMSGSIZE;
    }
    memcpy(nla_data(attribute), packet, size);
    if (number)
        memcpy(nla_data(attribute), number, sizeof(*number));
    genlmsg_end(skb, head);
    return genlmsg_unicast(&init_net, skb, holder->portid);
}

static int send_burst(const struct qxpkt_holder *holder, const void *packet, int size, u32 count)
{
    u32 number;
    int result = 0;

    if (count > QXPKT_BURST_MAX)
        return -ERANGE;
    for (number = 0; number < count && !result; ++number)
        result = send_packet(holder, packet, size, &number);
    return result;
}

static int answer(const struct qxpkt_holder *holder, const void *packet, int size)
{
    struct qxpkt_burst request;

    if (size < (int)sizeof(request))
        return send_packet(holder, packet, size, NULL);
    memcpy(&request, packet, sizeof(request));
    if (request.ulMagic != QXPKT_BURST_MAGIC)
        return send_packet(holder, packet, size, NULL);
    return send_burst(holder, packet, size, request.ulCount);
}

static int take_data(struct sk_buff *skb, struct genl_info *info)
{
    const struct nlattr *attribute = info->attrs[QXPKT_ATTR_DATA];
    const int type = link_type_of(attribute);
    int result = -EPERM;

    if (type < 0)
        return type;
    mutex_lock(&holders_lock);
    if (holders[type].socket == NETLINK_CB(skb).sk)
        result =
            answer(&holders[type], nla_data(attribute) + sizeof(u32), nla_len(attribute) - (int)sizeof(u32));
    mutex_unlock(&holders_lock);
    return result;
}

/* Whether this is the socket that is being released, and not a later one that has got its port. */
static bool is_released(const struct qxpkt_holder *holder, const struct netlink_notify *released)
{
    return holder->socket && holder->portid == released->portid && sock_flag(holder->socket, SOCK_DEAD);
}

static int on_release(struct notifier_block *block, unsigned long event, void *data)
{
    const struct netlink_notify *released = data;
    int type;

    if (event != NETLINK_URELEASE || released->protocol != NETLINK_GENERIC || released->net != &init_net)
        return NOTIFY_DONE;
    mutex_lock(&holders_lock);
    for (type = 0; type < QXPKT_LINK_TYPES; ++type)
        if (is_released(&holders[type], released))
            holders[type].socket = NULL;
    mutex_unlock(&holders_lock);
    return NOTIFY_DONE;
}

static struct notifier_block release_notifier = {.notifier_call = on_release};

static const struct nla_policy qxpkt_policy[] = {
    [QXPKT_ATTR_LINK_TYPE] = NLA_POLICY_MIN_LEN(sizeof(u32)),
    [QXPKT_ATTR_DATA] = NLA_POLICY_RANGE(NLA_BINARY, sizeof(u32), sizeof(u32) + QXPKT_PACKET_MAX),
};

static const struct genl_small_ops qxpkt_operations[] = {
    {.cmd = QXPKT_CMD_REGISTER, .doit = register_link, .flags = GENL_ADMIN_PERM},
    {.cmd = QXPKT_CMD_DATA, .doit = take_data, .flags = GENL_ADMIN_PERM},
};

static struct genl_family qxpkt_family __ro_after_init = {
    .name = QXPKT_FAMILY,
    .version = QXPKT_VERSION,
    .maxattr = ARRAY_SIZE(qxpkt_policy) - 1,
    .policy = qxpkt_policy,
    .parallel_ops = true, /* the holders have their own lock */
    .module = THIS_MODULE,
    .small_ops = qxpkt_operations,
    .n_small_ops = ARRAY_SIZE(qxpkt_operations),
};

/* The notifier frames the family on both sides: no socket can register while its release would go unnoticed.
 */
static int __init qxpkt_init(void)
{
    int result = netlink_register_notifier(&release_notifier);

    if (result)
        return result;
    result = genl_register_family(&qxpkt_family);
    if (result)
        netlink_unregister_notifier(&release_notifier);
    return result;
}

/* Unregistering waits for the commands that run and lets no further one in. Open links stay open: their next
 * packet is answered with an error. */
static void __exit qxpkt_exit(void)
{
    genl_unregister_family(&qxpkt_family);
    netlink_unregister_notifier(&release_notifier);
}

module_init(qxpkt_init);
module_exit(qxpkt_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Packet tunnel stand-in: sends back what processes send");
MODULE_ALIAS_GENL_FAMILY(QXPKT_FAMILY);

/*
 * A client of the shared tables: saves layer records in the main process's tables and lists them.
 *
 *   layer_client save INDEX NAME [hidden]     saves one record
 *   layer_client save-off-thread INDEX NAME   the same from a thread that is not the main one
 *   layer_client list                         lists the visible records
 *   layer_client keep INDEX NAME              saves it ten times a second until it is killed, and says when
 * that begins to fail and when it works again
 */
#include <qx/diag.h>
#include <qx/text.h>
#include <zema/layer_base.h>

#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#define TABLE_OF_IPV4IF 2U

/* Every layer record begins with the header; what follows is the layer's own. */
struct Interface {
    LayerBaseHeader stHeader;
    char acName[16];
};

static struct Interface makeInterface(uint32_t index, const char *name, uint32_t visible)
{
    struct Interface interface;

    memset(&interface, 0, sizeof interface);
    interface.stHeader.ulIndex = index;
    interface.stHeader.ulTableId = TABLE_OF_IPV4IF;
    interface.stHeader.ulVisible = visible;
    (void)strncpy(interface.acName, name, sizeof interface.acName - 1);
    LayerBase_SetState(&interface, 2); /* up, since now */
    return interface;
}

static int save(const struct Interface *interface)
{
    uint32_t result = LayerBase_SaveData(interface, sizeof *interface);

    if (result == ZEMA_OK) {
        printf("saved interface %u\n", interface->stHeader.ulIndex);
    } else {
        printf("interface %u was not saved: 0x%08X\n", interface->stHeader.ulIndex, result);
    }
    fflush(stdout);
    return result == ZEMA_OK ? 0 : 1;
}

static void *saveOnThread(void *interface)
{
    return save(interface) == 0 ? NULL : interface;
}

static int saveOffThread(struct Interface *interface)
{
    pthread_t thread;
    void *failed = NULL;

    return pthread_create(&thread, NULL, saveOnThread, interface) != 0 ||
           pthread_join(thread, &failed) != 0 || failed != NULL;
}

static uint32_t show(uint32_t table, void *item, void *count)
{
    const struct Interface *interface = item;

    (void)table;
    printf("interface %u: %.15s, state %u since %u\n", interface->stHeader.ulIndex, interface->acName,
           interface->stHeader.ulState, interface->stHeader.ulState2Jiffies);
    ++*(uint32_t *)count;
    return ZEMA_OK;
}

static int list(void)
{
    uint32_t count = 0;
    uint32_t result = LayerBase_ForeachDataItem(TABLE_OF_IPV4IF, sizeof(struct Interface), show, &count);

    printf("%u visible\n", count);
    return result == ZEMA_OK ? 0 : 1;
}

static void keep(const struct Interface *interface)
{
    uint32_t before = ZEMA_ERR;

    for (;; usleep(100000)) {
        uint32_t result = MultiHashtableEx_SaveData(TABLE_OF_IPV4IF, interface->stHeader.ulIndex, interface,
                                                    sizeof *interface);

        if ((result == ZEMA_OK) != (before == ZEMA_OK)) {
            printf(result == ZEMA_OK ? "saving works\n" : "saving fails\n");
            fflush(stdout);
        }
        before = result;
    }
}

static int usage(void)
{
    fprintf(stderr, "usage: layer_client save|save-off-thread|keep INDEX NAME [hidden], or list\n");
    return 2;
}

int main(int argc, char **argv)
{
    const char *verb = argc > 1 ? argv[1] : "";
    uint32_t index = 0;
    struct Interface interface;

    if (argc == 2 && strcmp(verb, "list") == 0) {
        return list();
    }
    if (argc < 4 || QX_OS_StrToUInt32(argv[2], &index) != 0) {
        return usage();
    }
    interface = makeInterface(index, argv[3], argc == 4);
    if (strcmp(verb, "keep") == 0) {
        keep(&interface);
    }
    if (strcmp(verb, "save") == 0) {
        return save(&interface);
    }
    return strcmp(verb, "save-off-thread") == 0 ? saveOffThread(&interface) : usage();
}

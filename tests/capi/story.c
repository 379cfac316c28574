/* A C host on bvgeo.h alone: it opens the library in virtual time, points it at a
 * zone/trigger server, walks a short track through one fence (tests/capi/
 * story-places.csv: "Harbour Square", 200 m around 51.5 N 0.1 E) and checks that
 * its callback got enter, linger and exit with every field, that the server took
 * the reports, and that reset and bad input answer as documented.
 *     story DATA_DIR SERVER_URL       e.g. SERVER_URL=http://127.0.0.1:8080/
 * Prints one line per trigger, then "story: ok"; exits 1 at the first surprise. */
#include <bvgeo/bvgeo.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define MAX_SEEN 16

struct seen {
    int count;
    int types[MAX_SEEN];
    int64_t timestamps[MAX_SEEN];
    char device_ids[MAX_SEEN][40];
    int fields_ok;
};

static int failures = 0;

#define CHECK(condition)                                                                        \
    do {                                                                                        \
        if (!(condition)) {                                                                     \
            fprintf(stderr, "story.c:%d: check failed: %s (last error: %s)\n", __LINE__,        \
                    #condition, bvgeo_last_error());                                            \
            ++failures;                                                                         \
        }                                                                                       \
    } while (0)

static void on_trigger(bvgeo_tracker *tracker, const bvgeo_trigger *trigger, void *user_data) {
    struct seen *seen = (struct seen *)user_data;
    (void)tracker;
    printf("%s %s (%s) at %lld, %s\n", trigger->event, trigger->fence_name, trigger->fence_id,
           (long long)trigger->timestamp, trigger->location_event);
    fflush(stdout);
    if (seen->count >= MAX_SEEN) return;
    seen->types[seen->count] = trigger->type;
    seen->timestamps[seen->count] = trigger->timestamp;
    strncpy(seen->device_ids[seen->count], trigger->device_id, sizeof seen->device_ids[0] - 1);
    seen->device_ids[seen->count][sizeof seen->device_ids[0] - 1] = '\0';
    if (strcmp(trigger->fence_id, "story-1") != 0 || strcmp(trigger->fence_name, "Harbour Square") != 0 ||
        strlen(trigger->device_id) != 36 ||
        (trigger->location_event_type == BVGEO_LOCATION_EVENT_REGULAR) != (strcmp(trigger->location_event, "regular") == 0) ||
        (trigger->type == BVGEO_TRIGGER_ENTER) != (strcmp(trigger->event, "enter") == 0) ||
        (trigger->type == BVGEO_TRIGGER_LINGER) != (strcmp(trigger->event, "linger") == 0) ||
        (trigger->type == BVGEO_TRIGGER_EXIT) != (strcmp(trigger->event, "exit") == 0))
        seen->fields_ok = 0;
    seen->count++;
}

int main(int argc, char **argv) {
    /* Metres east of the fence centre at 51.5 N: one degree of longitude is ~69.3 km. */
    static const struct { double east; double seconds; } walk[] = {
        {-1000, 0}, {-500, 60}, {-100, 120}, {-50, 180}, {0, 300}, {50, 450}, {600, 510},
    };
    const double start = 1400000000.0;
    bvgeo_open_options options;
    bvgeo_tracker *tracker = NULL;
    bvgeo_parameters parameters;
    struct seen seen;
    char api_base[512];
    char *device_id = NULL;
    char *after_reset = NULL;
    bvgeo_trigger *stored = NULL;
    size_t count = 0, pending = 99;
    size_t i;
    int received = -1;

    if (argc != 3) {
        fprintf(stderr, "usage: story DATA_DIR SERVER_URL\n");
        return 2;
    }
    memset(&seen, 0, sizeof seen);
    seen.fields_ok = 1;
    CHECK(strcmp(bvgeo_version(), BVGEO_VERSION) == 0);

    bvgeo_open_options_init(&options);
    options.documents_directory = argv[1];
    options.main_queue = BVGEO_MAIN_QUEUE_VIRTUAL_TIME;
    options.start_time = start;
    if (bvgeo_open(&options, &tracker) != BVGEO_OK) {
        fprintf(stderr, "story: bvgeo_open: %s\n", bvgeo_last_error());
        return 1;
    }
    /* Wrong order, as the facade: start before configure starts nothing. */
    CHECK(bvgeo_start(tracker) == BVGEO_ERR_NOT_CONFIGURED);
    /* Bad input: a code, never a crash. */
    CHECK(bvgeo_configure(tracker, NULL, 0, 0) == BVGEO_ERR_INVALID_ARGUMENT);
    CHECK(bvgeo_configure(tracker, "bad\xff", 0, 0) == BVGEO_ERR_INVALID_ARGUMENT);
    CHECK(bvgeo_push_location(tracker, 91.0, 0.0, -1, 0, BVGEO_FIX_AUTOMATIC, NULL) == BVGEO_ERR_INVALID_ARGUMENT);
    CHECK(bvgeo_set_environment_urls(tracker, 9, "x", "y") == BVGEO_ERR_INVALID_ARGUMENT);
    CHECK(bvgeo_get_device_id(NULL, &device_id) == BVGEO_ERR_INVALID_ARGUMENT);

    snprintf(api_base, sizeof api_base, "%sapi/v1/app/", argv[2]);
    CHECK(bvgeo_set_environment_urls(tracker, BVGEO_ENVIRONMENT_DEVELOPMENT, api_base, argv[2]) == BVGEO_OK);
    CHECK(bvgeo_configure(tracker, "story", BVGEO_TRIGGER_MODE_BOTH, BVGEO_ENVIRONMENT_DEVELOPMENT) == BVGEO_OK);
    bvgeo_parameters_init(&parameters);
    parameters.accuracy = BVGEO_ACCURACY_NEAREST_TEN_METERS;
    parameters.distance_filter = 10.0;
    parameters.linger_time = 300;
    CHECK(bvgeo_set_parameters(tracker, &parameters) == BVGEO_OK);
    CHECK(bvgeo_set_trigger_callback(tracker, on_trigger, &seen) == BVGEO_OK);
    CHECK(bvgeo_start(tracker) == BVGEO_OK);
    CHECK(bvgeo_get_device_id(tracker, &device_id) == BVGEO_OK && device_id && strlen(device_id) == 36);

    for (i = 0; i < sizeof walk / sizeof walk[0]; ++i) {
        CHECK(bvgeo_push_location(tracker, 51.5, 0.1 + walk[i].east / 69300.0, 5.0, start + walk[i].seconds,
                                  BVGEO_FIX_AUTOMATIC, &received) == BVGEO_OK);
        CHECK(received >= 1);
    }
    /* Let the request queue's timers send the reports. */
    CHECK(bvgeo_virtual_advance_to(tracker, start + 600) == BVGEO_OK);
    CHECK(bvgeo_pending_reports(tracker, &pending) == BVGEO_OK && pending == 0);

    CHECK(seen.count == 3);
    CHECK(seen.fields_ok);
    if (seen.count == 3) {
        CHECK(seen.types[0] == BVGEO_TRIGGER_ENTER && seen.timestamps[0] == (int64_t)start + 120);
        CHECK(seen.types[1] == BVGEO_TRIGGER_LINGER && seen.timestamps[1] == (int64_t)start + 450);
        CHECK(seen.types[2] == BVGEO_TRIGGER_EXIT && seen.timestamps[2] == (int64_t)start + 510);
        for (i = 0; i < 3; ++i) CHECK(device_id && strcmp(seen.device_ids[i], device_id) == 0);
    }
    CHECK(bvgeo_list_triggers(tracker, &stored, &count) == BVGEO_OK && count == 3);
    if (count == 3 && stored) {
        CHECK(strcmp(stored[0].event, "enter") == 0 && strcmp(stored[2].fence_name, "Harbour Square") == 0);
    }
    bvgeo_free_triggers(stored, count);

    /* Reset archives the database and makes a new device id; the same name again is refused. */
    CHECK(bvgeo_reset(tracker, "story-archive") == BVGEO_OK);
    CHECK(bvgeo_get_device_id(tracker, &after_reset) == BVGEO_OK && after_reset && device_id &&
          strcmp(after_reset, device_id) != 0);
    CHECK(bvgeo_list_triggers(tracker, &stored, &count) == BVGEO_OK && count == 0 && stored == NULL);
    CHECK(bvgeo_reset(tracker, "story-archive") == BVGEO_ERR_RESET_ARCHIVE_EXISTS);
    CHECK(bvgeo_reset(tracker, "") == BVGEO_ERR_RESET_NAME_MANDATORY);

    bvgeo_free(device_id);
    bvgeo_free(after_reset);
    CHECK(bvgeo_close(tracker) == BVGEO_OK);
    if (failures) {
        fprintf(stderr, "story: %d checks failed\n", failures);
        return 1;
    }
    printf("story: ok\n");
    return 0;
}

/* A C host whose console callback calls back into the library, on the thread it is
 * called on and from a thread of its own that it waits for: bvgeo_log and
 * bvgeo_pending_reports answer BVGEO_OK there, the lines logged from the helper
 * thread come back to the console, nothing hangs, and after bvgeo_close returns
 * the callback is never called again.
 *     console_reentry DATA_DIR
 * Prints "console_reentry: ok"; exits 1 at the first surprise. */
#include <bvgeo/bvgeo.h>

#include <pthread.h>
#include <stdio.h>
#include <string.h>

struct host {
    bvgeo_tracker *tracker;
    pthread_mutex_t mutex;
    int lines, helpers, helper_echoes, nested_failures;
    int closed, called_after_close;
};

static struct host host = {NULL, PTHREAD_MUTEX_INITIALIZER, 0, 0, 0, 0, 0, 0};

static void nested_calls(const char *message) {
    size_t pending = 0;
    int failed = bvgeo_log(host.tracker, message) != BVGEO_OK ||
                 bvgeo_pending_reports(host.tracker, &pending) != BVGEO_OK;
    pthread_mutex_lock(&host.mutex);
    host.nested_failures += failed;
    pthread_mutex_unlock(&host.mutex);
}

static void *helper(void *unused) {
    (void)unused;
    nested_calls("logged by the console's helper thread");
    return NULL;
}

static void on_console(const char *line, void *user_data) {
    int spawn;
    (void)user_data;
    pthread_mutex_lock(&host.mutex);
    if (host.closed) host.called_after_close = 1;
    ++host.lines;
    if (strstr(line, "logged by the console's helper thread")) ++host.helper_echoes;
    spawn = host.helpers < 5 && !strstr(line, "helper thread");
    if (spawn) ++host.helpers;
    pthread_mutex_unlock(&host.mutex);

    nested_calls("logged from inside the console callback");
    if (spawn) {
        pthread_t thread;
        if (pthread_create(&thread, NULL, helper, NULL) == 0) pthread_join(thread, NULL);
    }
}

int main(int argc, char **argv) {
    bvgeo_open_options options;
    int i, ok;
    if (argc < 2) {
        fprintf(stderr, "usage: console_reentry DATA_DIR\n");
        return 2;
    }
    bvgeo_open_options_init(&options);
    options.documents_directory = argv[1];
    options.console = on_console;
    if (bvgeo_open(&options, &host.tracker) != BVGEO_OK) {
        fprintf(stderr, "console_reentry: open failed: %s\n", bvgeo_last_error());
        return 1;
    }
    /* Debug mode echoes every log line to the console; the zone download to a closed
     * port adds lines from the library's HTTP thread. */
    bvgeo_set_environment_urls(host.tracker, BVGEO_ENVIRONMENT_DEVELOPMENT, "http://127.0.0.1:9/api/v1/app/",
                               "http://127.0.0.1:9/");
    bvgeo_configure(host.tracker, "reentry", BVGEO_TRIGGER_MODE_BOTH, BVGEO_ENVIRONMENT_DEVELOPMENT);
    bvgeo_start(host.tracker);
    for (i = 0; i < 3; ++i) bvgeo_log(host.tracker, "logged by the host");
    bvgeo_push_location(host.tracker, 51.5, 0.1, 10, 0, BVGEO_FIX_AUTOMATIC, NULL);
    if (bvgeo_close(host.tracker) != BVGEO_OK) {
        fprintf(stderr, "console_reentry: close failed: %s\n", bvgeo_last_error());
        return 1;
    }
    pthread_mutex_lock(&host.mutex);
    host.closed = 1;
    pthread_mutex_unlock(&host.mutex);

    ok = host.lines > 0 && host.helpers == 5 && host.helper_echoes == 5 && host.nested_failures == 0 &&
         !host.called_after_close;
    if (!ok) {
        fprintf(stderr, "console_reentry: %d lines, %d helpers, %d helper echoes, %d failed calls, %s\n", host.lines,
                host.helpers, host.helper_echoes, host.nested_failures,
                host.called_after_close ? "called after close" : "quiet after close");
        return 1;
    }
    printf("console_reentry: ok\n");
    return 0;
}

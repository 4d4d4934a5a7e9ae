/* The peer: an established open-source demuxer opens each file and its index
 * of the video stream is walked, entry by entry, as a host would to build a
 * frame table. For each file: the fastest of `reps` runs, in nanoseconds, and
 * the number of entries walked.
 *
 *   peer_index_walk REPS FILE...     (REPS 0: load the library only) */
#include <libavformat/avformat.h>
#include <libavutil/log.h>

#include <stdio.h>
#include <stdlib.h>
#include <time.h>

static int Compare(const void* a, const void* b)
{
    const long long x = *(const long long*)a, y = *(const long long*)b;
    return (x > y) - (x < y);
}

static long long Now(void)
{
    struct timespec t;
    /* CPU time of the process, user and system: on a shared machine wall time
     * also counts the waits for a core. */
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return (long long)t.tv_sec * 1000000000LL + t.tv_nsec;
}

/* Opens `path`, walks the index of its first video stream; -1 on failure. */
static long long OpenAndWalk(const char* path, int64_t* checksum)
{
    AVFormatContext* context = NULL;
    if (avformat_open_input(&context, path, NULL, NULL) < 0) return -1;
    long long entries = -1;
    for (unsigned s = 0; s < context->nb_streams; ++s) {
        AVStream* stream = context->streams[s];
        if (stream->codecpar->codec_type != AVMEDIA_TYPE_VIDEO) continue;
        const int count = avformat_index_get_entries_count(stream);
        int64_t sum = 0;
        for (int i = 0; i < count; ++i) {
            const AVIndexEntry* e = avformat_index_get_entry(stream, i);
            sum += e->pos + e->size + e->timestamp + (e->flags & AVINDEX_KEYFRAME);
        }
        *checksum += sum;
        entries = count;
        break;
    }
    avformat_close_input(&context);
    return entries;
}

int main(int argc, char** argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: %s REPS FILE...\n", argv[0]);
        return 2;
    }
    av_log_set_level(AV_LOG_ERROR);
    const int reps = atoi(argv[1]);
    long long* times = calloc(reps > 0 ? (size_t)reps : 1, sizeof *times);
    if (!times) return 1;
    int64_t checksum = 0;
    for (int f = 2; f < argc && reps > 0; ++f) {
        long long entries = -1;
        for (int r = 0; r < reps; ++r) {
            const long long start = Now();
            entries = OpenAndWalk(argv[f], &checksum);
            const long long ns = Now() - start;
            if (entries < 0) {
                fprintf(stderr, "cannot open or walk %s\n", argv[f]);
                return 1;
            }
            times[r] = ns;
        }
        qsort(times, (size_t)reps, sizeof *times, Compare);
        printf("%s %lld %lld %lld\n", argv[f], times[reps / 2], times[0], entries);
    }
    free(times);
    fprintf(stderr, "checksum %lld\n", (long long)checksum);
    return 0;
}

/* SPDX-License-Identifier: MIT */
/* The only process of the test machine besides the tests: mounts what they need, runs every test of every program in
 * a process of its own, once as root and once as somebody else, says on the console how it went, and ends the
 * machine. */
#include <dirent.h>
#include <errno.h>
#include <grp.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

enum { kOrdinaryUser = 1000, kSeconds = 300 };
static const char kSuites[] = "Blit. Engine. Mem. WithoutPermission."; /* those that meet the kernel */

static int g_ran, g_failed;

static void become(unsigned uid) {
    if (uid && (setgroups(0, NULL) || setgid(uid) || setuid(uid)))
        _exit(126);
}

/* Shows what a test printed: everything of one that failed, of the others what they measured or left out. */
static void show(const char* path, int everything) {
    char line[512];
    FILE* output = fopen(path, "r");
    while (output && fgets(line, sizeof(line), output)) {
        if (everything || strstr(line, "BENCH") || (strstr(line, "SKIPPED") && strstr(line, " ms)")))
            fputs(line, stdout);
    }
    if (output)
        fclose(output);
}

/* Runs one test; a test that hangs is killed by its alarm. */
static void run_test(const char* program, const char* filter, unsigned uid) {
    char path[64];
    snprintf(path, sizeof(path), "/tmp/output-%u", uid);
    fflush(stdout);
    const pid_t pid = fork();
    if (pid == 0) {
        char argument[256];
        snprintf(argument, sizeof(argument), "--gtest_filter=%.200s", filter);
        become(uid);
        if (!freopen(path, "w", stdout) || dup2(1, 2) < 0)
            _exit(126);
        alarm(kSeconds);
        execl(program, program, argument, "--gtest_color=no", (char*)NULL);
        _exit(127);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    ++g_ran;
    show(path, !WIFEXITED(status) || WEXITSTATUS(status));
    if (!WIFEXITED(status) || WEXITSTATUS(status)) {
        ++g_failed;
        printf("FAILED %s %s as user %u: %s %d\n", program, filter, uid, WIFEXITED(status) ? "status" : "signal",
               WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status));
    }
}

/* Lists a program's tests, then runs them one by one. */
static void run_program(const char* program, unsigned uid) {
    char path[64], line[256], suite[128] = "";
    char names[256][128]; /* suite and test */
    int count = 0;
    snprintf(path, sizeof(path), "/tmp/list-%u", uid);
    fflush(stdout);
    const pid_t pid = fork();
    if (pid == 0) {
        if (!freopen(path, "w", stdout))
            _exit(126);
        execl(program, program, "--gtest_list_tests", (char*)NULL);
        _exit(127);
    }
    waitpid(pid, NULL, 0);
    FILE* list = fopen(path, "r");
    while (list && count < 256 && fgets(line, sizeof(line), list)) {
        line[strcspn(line, "\n#")] = 0;
        const size_t length = strlen(line);
        if (line[0] != ' ' && length && line[length - 1] == '.')
            snprintf(suite, sizeof(suite), "%.100s", line);
        else if (!strncmp(line, "  ", 2) && strstr(kSuites, suite))
            snprintf(names[count++], sizeof(names[0]), "%s%.*s", suite, (int)strcspn(line + 2, " "), line + 2);
    }
    if (list)
        fclose(list);
    if (!count) {
        ++g_failed;
        printf("FAILED %s lists no tests\n", program);
    }
    for (int i = 0; i < count; ++i)
        run_test(program, names[i], uid);
}

static void open_nodes(const char* folder) {
    char path[300];
    DIR* nodes = opendir(folder);
    const struct dirent* node;
    while (nodes && (node = readdir(nodes))) {
        snprintf(path, sizeof(path), "%s/%s", folder, node->d_name);
        if (node->d_type == DT_CHR && (!strncmp(node->d_name, "video", 5) || !strcmp(node->d_name, "udmabuf") ||
                                       !strcmp(folder, "/dev/dma_heap")))
            chmod(path, 0666);
    }
    if (nodes)
        closedir(nodes);
}

int main(void) {
    mount("proc", "/proc", "proc", 0, NULL);
    mount("sysfs", "/sys", "sysfs", 0, NULL);
    mount("devtmpfs", "/dev", "devtmpfs", 0, NULL);
    mount("tmpfs", "/tmp", "tmpfs", 0, "mode=1777");
    setenv("PATH", "/", 1);
    setenv("TMPDIR", "/tmp", 1);
    /* The nodes are root's by default; the last pass has what a rule of udev would set. A pass that finds another
     * engine than it should has failed, not been skipped. */
    static const struct {
        const char *title, *expected, *programs;
        unsigned uid;
        int open_nodes;
    } passes[] = {{"root", "vim2m", "blit_test engine_test services_test", 0, 0},
                  {"an ordinary user", "no permission", "engine_test services_test", kOrdinaryUser, 0},
                  {"an ordinary user with permission for the nodes", "vim2m", "engine_test", kOrdinaryUser, 1}};
    struct dirent** programs = NULL;
    const int n = scandir("/tests", &programs, NULL, alphasort);
    for (unsigned pass = 0; pass < sizeof(passes) / sizeof(passes[0]); ++pass) {
        printf("as %s\n", passes[pass].title);
        setenv("TAVI_EXPECT_ENGINE", passes[pass].expected, 1);
        if (passes[pass].open_nodes) {
            open_nodes("/dev");
            open_nodes("/dev/dma_heap");
        }
        for (int i = 0; i < n; ++i) {
            char path[300];
            if (!strstr(passes[pass].programs, programs[i]->d_name))
                continue; /* the scripted tests learn nothing from another user */
            snprintf(path, sizeof(path), "/tests/%s", programs[i]->d_name);
            run_program(path, passes[pass].uid);
        }
    }
    printf("%d tests run, %d failed\nTAVI-VM-EXIT %d\n", g_ran, g_failed, g_failed || !g_ran ? 1 : 0);
    fflush(stdout);
    sync();
    reboot(RB_AUTOBOOT); /* the emulator is told to end instead */
    return 1;
}

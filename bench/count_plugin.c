/* SPDX-License-Identifier: MIT */
/* A plugin of qemu that counts the instructions a program executes and prints the count at its end. The few
 * declarations of qemu's plugin interface (version 1) stand here because no package has its header. */
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#define EXPORT __attribute__((visibility("default")))

typedef uint64_t plugin_id;
struct translation_block;
enum { kAdd = 0 };

void qemu_plugin_register_vcpu_tb_trans_cb(plugin_id, void (*)(plugin_id, struct translation_block*));
void qemu_plugin_register_vcpu_tb_exec_inline(struct translation_block*, int operation, void* counter,
                                              uint64_t value);
size_t qemu_plugin_tb_n_insns(const struct translation_block*);
void qemu_plugin_register_atexit_cb(plugin_id, void (*)(plugin_id, void*), void*);

EXPORT int qemu_plugin_version = 1;
static uint64_t g_instructions;

static void on_translation(plugin_id id, struct translation_block* block) {
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_inline(block, kAdd, &g_instructions, qemu_plugin_tb_n_insns(block));
}

static void at_exit(plugin_id id, void* data) {
    (void)id;
    (void)data;
    fprintf(stderr, "INSTRUCTIONS %llu\n", (unsigned long long)g_instructions);
}

EXPORT int qemu_plugin_install(plugin_id id, const void* info, int argc, char** argv) {
    (void)info;
    (void)argc;
    (void)argv;
    qemu_plugin_register_vcpu_tb_trans_cb(id, on_translation);
    qemu_plugin_register_atexit_cb(id, at_exit, NULL);
    return 0;
}

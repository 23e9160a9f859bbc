/* SPDX-License-Identifier: Apache-2.0 */
/* A plugin of qemu that prints how many instructions a program ran:
       qemu-aarch64 -plugin PLUGIN.so PROGRAM ...
   Debian has no header of these functions; they are qemu's plugin interface, version 1. */
#include <inttypes.h>
#include <stddef.h>
#include <stdio.h>

struct qemu_plugin_tb;
void qemu_plugin_register_vcpu_tb_trans_cb(uint64_t id,
                                           void (*callback)(uint64_t id, struct qemu_plugin_tb *block));
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb *block, int operation, void *value,
                                              uint64_t operand);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb *block);
void qemu_plugin_register_atexit_cb(uint64_t id, void (*callback)(uint64_t id, void *data), void *data);

__attribute__((visibility("default"))) int qemu_plugin_version = 1;

static uint64_t num_instructions;

static void translate_block(uint64_t id, struct qemu_plugin_tb *block) {
    const int add_to_value = 0;
    (void) id;
    qemu_plugin_register_vcpu_tb_exec_inline(block, add_to_value, &num_instructions,
                                             qemu_plugin_tb_n_insns(block));
}

static void print_count(uint64_t id, void *data) {
    (void) id, (void) data;
    fprintf(stderr, "%" PRIu64 "\n", num_instructions);
}

__attribute__((visibility("default"))) int qemu_plugin_install(uint64_t id, const void *info, int argc,
                                                               char **argv) {
    (void) info, (void) argc, (void) argv;
    qemu_plugin_register_vcpu_tb_trans_cb(id, translate_block);
    qemu_plugin_register_atexit_cb(id, print_count, NULL);
    return 0;
}

/* SPDX-License-Identifier: Apache-2.0 */
/* A plugin of the emulator qemu: counts the instructions that the emulated program executes. At each
 * mark that the program makes (see mark() in instructions.cpp) it writes the count to standard error,
 * one number a line. The distribution packages neither such a plugin nor the header for one, so the
 * few functions of the emulator that are called here are declared here. */
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#define EXPORT __attribute__((visibility("default")))

struct qemu_plugin_tb;
struct qemu_info_t;

extern void qemu_plugin_register_vcpu_tb_trans_cb(uint64_t id,
                                                  void (*callback)(uint64_t id,
                                                                   struct qemu_plugin_tb* block));
extern void qemu_plugin_register_vcpu_tb_exec_cb(struct qemu_plugin_tb* block,
                                                 void (*callback)(unsigned int cpu, void* data),
                                                 int flags, void* data);
extern void qemu_plugin_register_vcpu_syscall_cb(
    uint64_t id,
    void (*callback)(uint64_t id, unsigned int cpu, int64_t number, uint64_t a1, uint64_t a2,
                     uint64_t a3, uint64_t a4, uint64_t a5, uint64_t a6, uint64_t a7, uint64_t a8));
extern size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* block);

/* The version of that interface. An emulator that wants a newer one says so. */
EXPORT int qemu_plugin_version = 1;

/* The program has one thread. */
static uint64_t executed;

static void count(unsigned int cpu, void* instructions)
{
    (void)cpu;
    executed += (uintptr_t)instructions;
}

static void translated(uint64_t id, struct qemu_plugin_tb* block)
{
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_cb(block, count, 0, (void*)qemu_plugin_tb_n_insns(block));
}

static void called(uint64_t id, unsigned int cpu, int64_t number, uint64_t a1, uint64_t a2,
                   uint64_t a3, uint64_t a4, uint64_t a5, uint64_t a6, uint64_t a7, uint64_t a8)
{
    (void)id, (void)cpu, (void)a1, (void)a2, (void)a3, (void)a4, (void)a5, (void)a6, (void)a7,
        (void)a8;
    if (number == MARK)
    {
        fprintf(stderr, "%llu\n", (unsigned long long)executed);
    }
}

EXPORT int qemu_plugin_install(uint64_t id, const struct qemu_info_t* info, int argc, char** argv)
{
    (void)info, (void)argc, (void)argv;
    qemu_plugin_register_vcpu_tb_trans_cb(id, translated);
    qemu_plugin_register_vcpu_syscall_cb(id, called);
    return 0;
}

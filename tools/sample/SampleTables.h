/*
 * Identities of the sample compiled library (libquarn_sample.so), shared by its tables and by
 * the tests of the tools. The sample is three compiled entry points ("jobs") over three C#
 * source files in Assets/Scripts/ beside this header:
 *
 *   entry PlayerUpdate   methods Player.Update, Inventory.Count, MathUtil.Clamp
 *   entry InventorySort  methods Inventory.Sort, MathUtil.Clamp
 *   entry PlayerSpawn    method Player.Spawn (with MathUtil.Lerp inlined: two source files)
 *
 * MathUtil.Clamp is compiled into two entry points, so one breakpoint in it switches both.
 */
#ifndef QUARN_SAMPLE_TABLES_H
#define QUARN_SAMPLE_TABLES_H

#define SAMPLE_ENTRY_PLAYER_UPDATE \
    { 0x0000000000000001ull, 0x00000000000000E1ull }
#define SAMPLE_ENTRY_INVENTORY_SORT \
    { 0x0000000000000002ull, 0x00000000000000E1ull }
#define SAMPLE_ENTRY_PLAYER_SPAWN \
    { 0x0000000000000003ull, 0x00000000000000E1ull }

#define SAMPLE_METHOD_PLAYER_UPDATE \
    { 0x0000000000000010ull, 0x000000000000004Dull }
#define SAMPLE_METHOD_PLAYER_SPAWN \
    { 0x0000000000000011ull, 0x000000000000004Dull }
#define SAMPLE_METHOD_INVENTORY_COUNT \
    { 0x0000000000000020ull, 0x000000000000004Dull }
#define SAMPLE_METHOD_INVENTORY_SORT \
    { 0x0000000000000021ull, 0x000000000000004Dull }
#define SAMPLE_METHOD_MATHUTIL_CLAMP \
    { 0x0000000000000030ull, 0x000000000000004Dull }

#define SAMPLE_PLAYER_PATH "Assets/Scripts/Player.cs"
#define SAMPLE_INVENTORY_PATH "Assets/Scripts/Inventory.cs"
/* Relative form: the debugger's absolute path of the file matches it by suffix. */
#define SAMPLE_MATHUTIL_PATH "./Assets/Scripts/MathUtil.cs"

/* The breakpoint the demo sets when it is given none: inside MathUtil.Clamp. */
#define SAMPLE_DEFAULT_BREAKPOINT "Assets/Scripts/MathUtil.cs:12"

#endif

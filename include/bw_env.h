// Every environment variable the libraries and the viewer read, in one list.
// Each is read once, at the first question about any of them, and kept; the
// README's table of variables is this list.
#pragma once

// clang-format off
// ENV_VAR(NAME, meaning): the accessor's id is ENV_<NAME>.
#define BW_ENV_VARS \
    ENV_VAR(BW_RSRC, "resource directory when -R is not given") \
    ENV_VAR(BW_VIEWER_SCRIPT, "file of viewer input lines played as if typed, after start-up") \
    ENV_VAR(BW_LIVE_SHOWFORMATS, "present: print every pixel format considered") \
    ENV_VAR(BW_PIXELFORMAT, "id of the pixel format to use instead of the chosen one") \
    ENV_VAR(TOL_VERIFY_OPTIONS, "decimal bits or-ed into the TOL verification word") \
    ENV_VAR(BW_DBDIR, "directory searched first for DatabaseDir.rsrc, and where it is written") \
    ENV_VAR(BW_CUSTOM_SHADER, "name of the database that becomes the shader library") \
    ENV_VAR(BW_LOAD_OPTIM, "present: scene loads index elements by data pointer") \
    ENV_VAR(BW_NEO_LEGACYLOADER, "present: the ANIMATION chapter is not sorted by hierarchy") \
    ENV_VAR(BW_NO_LOAD_PAUSE, "present: no one-second pause after a file that fails to read") \
    ENV_VAR(BW_DICT_DUMP, "present: dump the dictionary to standard error after each scene load") \
    ENV_VAR(BW_UPDATE_LIST_DUMP, "present: print each update list when it is built") \
    ENV_VAR(BW_MANIPULATION_OPTIM, "present: the update walk climbs to marked ancestors only") \
    ENV_VAR(BW_NO_OPTIM_UNTOLD_REL, "present: hidden models nobody reads are evaluated too") \
    ENV_VAR(BW_NO_ENVELOP_OPTIM, "present: envelope work is not deferred to the end") \
    ENV_VAR(BW_ENV_RND_FST_JNT, "present: the first joint of an enveloped chain is rounded like the others") \
    ENV_VAR(BW_CLASSICAL_SCL_FIX, "present: classical scaling corrects every sheared child") \
    ENV_VAR(BW_IK_OLD_JOINT_ROLL, "present: chains keep joint roll by the old method") \
    ENV_VAR(BW_OVERLOAD_HIDDEN, "present: hidden bits set matte alpha; visibility curves are integers") \
    ENV_VAR(BW_SHADE_HIGHLIGHT_WIDTH, "real number: line width of highlights") \
    ENV_VAR(BW_SHADE_OPTIMIZE_EDITING, "present: textures keep their flags at state init") \
    ENV_VAR(BW_OGL_LIGHT_VIEWER_INFINITE, "present: the light model puts the viewer at infinity") \
    ENV_VAR(BW_SHADE_TEXSIZE_LIMIT, "texture size limit in pixels, or OFF") \
    ENV_VAR(BW_OLD_UV_CONVERSION, "present: old UV handling at the seam") \
    ENV_VAR(BW_SHADE_TEXTURE_REPEAT, "present: every texture wraps with GL_REPEAT") \
    ENV_VAR(BW_SHADE_DISABLE_OFFSET, "present: no polygon offset") \
    ENV_VAR(OGL_PRESENT_TEST, "present: print whether polygon offset was found") \
    ENV_VAR(DEBUG_CULLING, "first letter Y: print a line per culling decision") \
    ENV_VAR(BW_SHADE_SHOW_FIELD, "present: editing shows the safe frames when asked") \
    ENV_VAR(BW_SAFETITLE, "safe title percentage, 1 to 100; 80 otherwise") \
    ENV_VAR(BW_SAFEACTION, "safe action percentage, 1 to 100; 90 otherwise") \
    ENV_VAR(HOME, "home directory for a leading ~ in a database path") \
    ENV_VAR(USER, "user named in a database lock file") \
    ENV_VAR(LOGNAME, "user named in a lock file when USER is unset") \
    ENV_VAR(BW_CHNLDRIVER, "directory of the channel driver executables and their .drv files") \
    ENV_VAR(BW_DRIVER_TIMEOUT, "seconds a starting driver has to answer; below 1 or unset: 7") \
    ENV_VAR(BW_CHNL_ARENA_NAME, "set for drivers: path of the shared arena file of the run") \
    ENV_VAR(CHNL_BUFFER_FILE, "set for drivers: temporary file of the run") \
    ENV_VAR(TMPDIR, "directory of the arena and temporary files; /tmp when unset")
// clang-format on

enum EnvVar {
#define ENV_VAR(name, meaning) ENV_##name,
    BW_ENV_VARS
#undef ENV_VAR
    ENV_COUNT
};

// The variable's value as read at first use, null when it was not set.
const char *envGet(EnvVar var);
// Non-zero when the variable was set, whatever its value.
int envIsSet(EnvVar var);
// Name and one-line meaning of a row.
const char *envName(EnvVar var);
const char *envMeaning(EnvVar var);
// A variable named by data, as "$NAME" in a database path: read at each call,
// since its name is not known in advance.
const char *envLookup(const char *name);
// Forgets what was read, so that the next question reads the environment again.
// For tests that change the environment.
void envReset();

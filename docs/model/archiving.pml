// Archiving beside syslogd, with kills and power cuts. README.md says what this shows, and how.
//
// A file is a number, its text a set of lines, a line one bit. `mem` is the log folder as programs
// see it, `disk` as a power cut would leave it; so are `text` and `safe` for the files, `named` and
// `disknamed` for the archive. Whatever changes may reach the disk at once, or not before a sync.

// The guards. -DWITHOUT=LEASE removes that one, -DWITHOUT=0 none.
#define TMP_FIRST 1      // .tmp is archived before another live log is taken
#define HIGHER 2         // a file is left alone if, after opening it, there is a higher rotation
#define TWIN 3           // a file that equals an archive file is only removed
#define PART 4           //   and so is one that equals the first part of an archive file
#define LEASE 5          // a file that someone has open for writing is left alone
#define LOOK 6           //   and so is one that was moved or written to while it was compressed
#define SYNC_COPY 7      // before the copy gets its name, it is on the disk,
#define SYNC_FOLDER 8    //   the file's name is on the disk,
#define FREE_NAME 9      //   and no archive file has the copy's name
#define SYNC_ARCHIVE 10  // before the file is removed, the copy's name is on the disk,
#define LAST_LOOK 11     //   the file has not been moved,
#define TAKE 12          //   and it is renamed to .tmp, to see whether that was the file
#define KEEP 13          // if it was another, that stays in .tmp, and the copy in the archive
#define SYNC_REMOVAL 14  // before a file is reported as archived, its removal is on the disk
#define ON(guard) (guard != WITHOUT)

#define LIVE 3  // indices of `at`; the rotations are 0 to R-1
#define TMP 4
#define COPIES 6
typedef folder { byte at[5] };  // the file of that name; 0: none
folder mem, disk;
byte text[FILES + 1], safe[FILES + 1], files;
byte copy[COPIES], next, named, disknamed, synced;  // archive files by name, and sets of them
byte lines, writer;             // how many lines were written; the file that syslogd has open
byte wasondisk, excused;        // sets of lines; excused: lost in a state that README.md names
byte reported, crashes, near;   // reported: a set of files; near: see syslogd
bool killed, cut, twins;        // twins: a file may equal an archive file

#define WRITTEN ((1 << lines) - 1)
#define IN(f, t) (t[f.at[0]] | t[f.at[1]] | t[f.at[2]] | t[f.at[LIVE]] | t[f.at[TMP]])
#define COPY(i, set) ((((set) >> (i)) & 1) * copy[i])
#define ARCHIVE(s) (COPY(0, s) | COPY(1, s) | COPY(2, s) | COPY(3, s) | COPY(4, s) | COPY(5, s))
#define ONDISK (IN(disk, safe) | ARCHIVE(disknamed & synced))
#define REST(i, t) (COPY(i, named) & ~t)  // of an archive file, if it has all lines of t
#define IS(i, t) ((COPY(i, named) & t) == t && (!REST(i, t) || (ON(PART) && REST(i, t) > t)))
#define IS_TWIN(t) (t && (IS(0, t) || IS(1, t) || IS(2, t) || IS(3, t) || IS(4, t) || IS(5, t)))

inline nothing_lost() { d_step {
    assert(!(WRITTEN & ~(IN(mem, text) | ARCHIVE(named) | excused)));
    assert(!(wasondisk & ~(ONDISK | excused))); wasondisk = ONDISK } }
inline in_order() { d_step {
    for (i : 0 .. COPIES - 1) {
        assert(!(COPY(i, named) & all));  // no line is doubled
        assert(LATE || !COPY(i, named) || (COPY(i, named) & -COPY(i, named)) > all);
        all = all | COPY(i, named) }
    i = 0; all = 0 } }
inline sync_folder() { d_step { for (k : 0 .. 4) { disk.at[k] = mem.at[k] } k = 0 } nothing_lost() }
inline folder_changed() { if :: sync_folder() :: nothing_lost() fi }
inline archive_changed() { if :: disknamed = named :: skip fi; nothing_lost() }
inline rename(from, to) { mem.at[to] = mem.at[from]; mem.at[from] = 0; folder_changed() }
inline reopen() {
    if :: mem.at[LIVE] || files == FILES
    :: else -> files++; mem.at[LIVE] = files; folder_changed() fi;
    writer = mem.at[LIVE] }

// A log may be full at any moment. It is opened anew when a second begins: at any moment, too.
// Between two neighbouring calls of the daemon no rotation begins (near: 1), nor is the live log
// moved (near: 2). -DLATE=1 lets both happen, and does not check the order.
active proctype syslogd() {
    byte i, k;
boot:
    atomic { cut = false; writer = 0; i = 0; k = 0 }
    {   do
        :: atomic { !writer || writer != mem.at[LIVE] -> reopen() }
        :: atomic { lines < LINES && writer -> text[writer] = text[writer] | (1 << lines); lines++;
               if :: safe[writer] = text[writer] :: skip fi; nothing_lost() }
        :: atomic { text[writer] && files < FILES && (!near || LATE) -> i = R - 1 };
           do
           :: atomic { i && mem.at[i - 1] ->
                  if :: i == R - 1 -> excused = excused | text[mem.at[i]] :: else fi;
                  rename(i - 1, i); i-- }
           :: atomic { i && !mem.at[i - 1] -> i-- }
           :: atomic { !i && (near < 2 || LATE) ->
                  if :: mem.at[LIVE] -> rename(LIVE, 0) :: else fi; reopen(); break }
           od
        od
    } unless { cut }; goto boot
}

#define LEAVE_IF(condition) if :: condition -> goto cycle :: else fi
#define STEP(guard, action) if :: ON(guard) -> atomic { action; nothing_lost() } :: else fi
active proctype daemon() {
    byte n, file, mark, xz, i, k, all;
    bool xzsynced, equal;
boot:
    atomic { killed = false; twins = true; k = 0 }
    {   skip;
cycle:  atomic {
            in_order(); file = 0; mark = 0; xz = 0; xzsynced = false; equal = false; near = 0;
            IN(mem, text) -> n = R;  // a listing
            do :: n && !mem.at[n - 1] -> n-- :: else -> break od;
            if
            :: mem.at[TMP] && (ON(TMP_FIRST) || !text[mem.at[LIVE]]) -> n = TMP
            :: else -> if :: n -> n-- :: else -> n = LIVE; twins = false; near = 2 fi
            fi }
        if :: atomic { n == LIVE -> rename(LIVE, TMP); n = TMP; near = 0 } :: n != LIVE fi;
        file = mem.at[n];  // opens it
        LEAVE_IF(!file); i = n + 1;
        do :: ON(HIGHER) && i < R -> LEAVE_IF(mem.at[i]); i++ :: else -> i = 0; break od;
        if
        :: ON(TWIN) && twins && IS_TWIN(text[file]) -> equal = true
        :: else ->
            mark = text[file];
            xz = text[mem.at[n]];  // it opens the file by its name
            LEAVE_IF(ON(LEASE) && writer == file);
            LEAVE_IF(ON(LOOK) && (mem.at[n] != file || text[file] != mark));
            if :: xzsynced = true :: !ON(SYNC_COPY) fi;
            STEP(SYNC_FOLDER, sync_folder());
            atomic { if :: next < COPIES :: !ON(FREE_NAME) && next -> next-- fi;
                copy[next] = xz; named = named | (1 << next);
                synced = (synced & ~(1 << next)) | (xzsynced << next); next++; archive_changed() }
        fi;
        STEP(SYNC_ARCHIVE, disknamed = named);
        if
        :: atomic { !ON(LAST_LOOK) || mem.at[n] == file -> near = ON(LAST_LOOK) }
        :: ON(LAST_LOOK) && mem.at[n] != file -> goto drop fi;
        if
        :: atomic { ON(TAKE) && n != TMP && mem.at[n] -> rename(n, TMP); n = TMP; near = 0 }
        :: atomic { ON(TAKE) && !mem.at[n] -> near = 0; goto drop }
        :: !ON(TAKE) || n == TMP fi;
        if :: ON(TAKE) && mem.at[n] != file -> twins = true; goto other :: else fi;
        atomic { mem.at[n] = 0; folder_changed() }
        STEP(SYNC_REMOVAL, sync_folder());
        reported = reported | (1 << file); goto cycle;
other:  LEAVE_IF(ON(KEEP));
drop:   LEAVE_IF(equal);
        atomic { named = named & ~(1 << (next - 1)); wasondisk = wasondisk & (IN(disk, safe) |
            ARCHIVE(disknamed & named & synced)); archive_changed(); goto cycle }
    } unless { killed }; goto boot
}

active proctype fate() {
    byte i, k;
    do
    :: atomic { crashes < CRASHES && !killed -> crashes++; killed = true }
    :: d_step { crashes < CRASHES && !killed && !cut -> crashes++; killed = true; cut = true;
           excused = excused | (WRITTEN & ~ONDISK); named = disknamed;
           for (k : 0 .. 4) { mem.at[k] = disk.at[k]; assert(!((reported >> mem.at[k]) & 1)) }
           for (i : 1 .. FILES) { text[i] = safe[i] }
           for (k : 0 .. COPIES - 1) { copy[k] = COPY(k, named & synced) }
           i = 0; k = 0 }
    od
}

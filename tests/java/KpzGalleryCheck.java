// KpzGalleryCheck.java - runs KaviKPZInterface's gallery calls (getInfo,
// getThumbnail, readPreview) on a real JVM against the built
// libKpzInterface.so, and holds every answer against the kpz tool's for the
// same file.
//
//   java -Djava.library.path=<build>/lib -cp kpzinterface.jar:check.jar \
//       kpztest.KpzGalleryCheck <fixtures dir> <kpz> [rss tolerance KiB]
//
// For every file kpz_java_fixtures wrote (tests/java/make_fixtures.cpp: the
// screennail entry's files, the concurrency files and the gallery files), by
// path and by descriptor:
//  - getInfo: the orientation, the preview's width, height and length, the
//    thumbnail's length, the model and the date-time equal to what
//    `kpz info --json` reports (a picture `kpz preview` / `kpz thumbnail`
//    cannot write has length 0), or the failure's words equal to kpz's;
//  - getThumbnail: the same bytes as `kpz thumbnail -o -`, or kpz's words;
//  - readPreview: the same bytes as `kpz preview -o -` in a reused direct
//    buffer (position 0, limit the length), the size needed when the buffer
//    is too small (nothing read), or kpz's words;
//  - the failure's kind as listed below for each failing file;
//  - a descriptor's offset unmoved and the descriptor still open.
// Then descriptors closed, negative and on a pipe, a named pipe and a
// missing file by path (the words of kpz for each), and a child JVM with
// eight threads at once making 10,000 rounds of four calls, whose VmRSS after
// a warm-up and at the end may differ by the tolerance (default 16 MiB; one
// leaked head per call would add 2.4 GB, one leaked 3 KB thumbnail 30 MB).
//
// With -Dkpztest.childJvmFlags=<flags> (the -Xcheck:jni run) the child JVM
// gets the same flags; any line of a JNI check in its output is a failure
// and is printed.
//
// Exit status 0 when every case passed; each failure is printed.
package kpztest;

import com.kavi.dtv.kpzinterface.KaviKPZInterface;
import com.kavi.dtv.kpzinterface.KpzException;
import com.kavi.dtv.kpzinterface.KpzInfo;

import java.io.File;
import java.io.FileInputStream;
import java.io.InputStream;
import java.io.RandomAccessFile;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HashMap;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.Properties;
import java.util.TreeSet;
import java.util.concurrent.CyclicBarrier;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicLong;
import java.util.regex.Pattern;

import static kpztest.ChildSupport.closeKept;
import static kpztest.ChildSupport.descriptorOf;
import static kpztest.ChildSupport.linkOf;
import static kpztest.ChildSupport.openFilesLimit;
import static kpztest.ChildSupport.openKept;
import static kpztest.ChildSupport.realPath;
import static kpztest.ChildSupport.report;
import static kpztest.ChildSupport.runThreads;
import static kpztest.ChildSupport.vmRssKiB;

public final class KpzGalleryCheck {
    // Where the descriptor cases put the descriptor's offset before the call.
    private static final long KEPT_OFFSET = 5;

    private static final int THREADS = 8;
    private static final int ROUNDS = Integer.getInteger("kpztest.rounds", 10000);  // in all, over the eight threads
    private static final int WARM_UP_ROUNDS = Integer.getInteger("kpztest.warmUp", 200);  // per thread

    private static final int EBADF = 9;
    private static final int ENOENT = 2;
    private static final int ESPIPE = 29;
    private static final int EISDIR = 21;

    // What a JNI check prints (HotSpot's -Xcheck:jni).
    static final Pattern JNI_CHECK_LINE = Pattern.compile(
            "WARNING in native method|FATAL ERROR in native method|WARNING: JNI local refs"
            + "|JNI call made without checking exceptions");

    // The kind of each failure, by fixture key and call ("info", "preview",
    // "thumbnail"); a key alone stands for all three calls.
    private static final Map<String, KpzException.Kind> KINDS = new HashMap<>();

    static {
        KpzException.Kind notKpz = KpzException.Kind.NOT_KPZ;
        KpzException.Kind damaged = KpzException.Kind.DAMAGED;
        // Every "not a KPZ raw file (...)" is NOT_KPZ, as its words say, also
        // a file cut within its header or directories.
        for (String key : Arrays.asList("gallery.text", "gallery.empty", "gallery.onedir",
                "gallery.nomakernote", "gallery.nomodel", "gallery.ifd1past", "gallery.exifpast",
                "gallery.header", "gallery.cut")) {
            KINDS.put(key, notKpz);
        }
        KINDS.put("nosn/preview", KpzException.Kind.NO_PREVIEW);
        KINDS.put("empty/preview", KpzException.Kind.NO_PREVIEW);
        KINDS.put("gallery.nopreview/preview", KpzException.Kind.NO_PREVIEW);
        KINDS.put("past/preview", damaged);
        KINDS.put("huge/preview", damaged);
        KINDS.put("gallery.previewpast/preview", damaged);
        KINDS.put("gallery.nothumb/thumbnail", KpzException.Kind.NO_THUMBNAIL);
        KINDS.put("gallery.emptythumb/thumbnail", KpzException.Kind.NO_THUMBNAIL);
        KINDS.put("gallery.thumbpast/thumbnail", damaged);
        KINDS.put("gallery.hugethumb/thumbnail", damaged);
    }

    private final List<String> failures = new ArrayList<>();
    private final KaviKPZInterface kpz = new KaviKPZInterface();
    private String kpzTool;
    private File workDir;
    // One buffer for every preview, as a decoding loop keeps it.
    private ByteBuffer buffer = ByteBuffer.allocateDirect(64);

    private KpzGalleryCheck() {}

    public static void main(String[] args) throws Exception {
        if (args.length == 3 && args[0].equals("--grid")) {
            System.exit(childOneCell(args[1], args[2].equals("preview")));
        }
        if (args.length >= 2 && args[0].equals("--stress")) {
            System.exit(childStress(Arrays.copyOfRange(args, 1, args.length)));
        }
        if (args.length < 2) {
            System.err.println("usage: KpzGalleryCheck <fixtures dir> <kpz> [rss tolerance KiB]");
            System.exit(2);
        }
        long toleranceKiB = args.length > 2 ? Long.parseLong(args[2]) : 16 * 1024;
        System.exit(new KpzGalleryCheck().runAll(args[0], args[1], toleranceKiB));
    }

    private int runAll(String fixturesDir, String tool, long toleranceKiB) throws Exception {
        kpzTool = tool;
        workDir = new File(fixturesDir);
        Properties fx = new Properties();
        try (InputStream in = new FileInputStream(new File(fixturesDir, "fixtures.properties"))) {
            fx.load(in);
        }
        TreeSet<String> keys = new TreeSet<>();
        for (String name : fx.stringPropertyNames()) {
            if (name.endsWith(".path")) {
                keys.add(name.substring(0, name.length() - ".path".length()));
            }
        }
        int files = 0;
        for (String key : keys) {
            checkFile(key, fx.getProperty(key + ".path"));
            files++;
        }
        checkEveryKindWasMet(keys);
        checkHugeThumbnail(fx.getProperty("gallery.hugethumb.path"));
        checkBadDescriptors(fx.getProperty("gallery.orient6.path"));
        checkNamedPipeAndMissingFile();
        checkArguments(fx.getProperty("gallery.orient6.path"));
        checkThreadsAndMemory(fx, toleranceKiB);

        if (failures.isEmpty()) {
            System.out.println("KpzGalleryCheck: all cases passed (" + files + " files)");
            return 0;
        }
        for (String f : failures) {
            System.out.println("FAILED: " + f);
        }
        return 1;
    }

    // ---- one file against kpz -------------------------------------------

    // What kpz says of one file for one command: the bytes written to
    // standard output, or the words of its line on standard error.
    private static final class ToolAnswer {
        byte[] bytes;  // null when it failed
        String words;  // null when it succeeded
    }

    private void checkFile(String key, String path) throws Exception {
        Map<String, Object> json = toolJson(path);
        ToolAnswer preview = tool(path, "preview");
        ToolAnswer thumbnail = tool(path, "thumbnail");
        for (boolean viaFd : new boolean[] {false, true}) {
            String what = key + (viaFd ? " (descriptor)" : " (path)");
            checkInfo(what, key, path, viaFd, json, preview, thumbnail);
            checkThumbnail(what, key, path, viaFd, thumbnail);
            checkPreview(what, key, path, viaFd, preview);
        }
    }

    private interface Call<T> {
        T run(int fd) throws KpzException;
    }

    // Runs `call` by path (fd -1 handed on) or through a descriptor of
    // `path` at KEPT_OFFSET, which must stay there and open.
    private <T> T through(String what, String path, boolean viaFd, Call<T> call) throws Exception {
        if (!viaFd) {
            return call.run(-1);
        }
        try (RandomAccessFile file = new RandomAccessFile(path, "r")) {
            int fd = descriptorOf(path);
            file.seek(KEPT_OFFSET);
            try {
                return call.run(fd);
            } finally {
                if (file.getFilePointer() != KEPT_OFFSET) {
                    failures.add(what + ": the descriptor's offset moved to " + file.getFilePointer());
                }
                if (!realPath(path).equals(linkOf(fd))) {
                    failures.add(what + ": descriptor " + fd + " was closed");
                }
            }
        }
    }

    private void checkInfo(String what, String key, String path, boolean viaFd,
            Map<String, Object> json, ToolAnswer preview, ToolAnswer thumbnail) throws Exception {
        what += " getInfo";
        KpzInfo info;
        try {
            info = through(what, path, viaFd, fd -> fd < 0 ? kpz.getInfo(path) : kpz.getInfo(fd));
        } catch (KpzException e) {
            expectFailure(what, key, "info", e, (String) json.get("error"));
            return;
        }
        if (json.get("error") != null) {
            failures.add(what + ": succeeded, kpz info says <" + json.get("error") + ">");
            return;
        }
        Map<String, Object> rotation = object(json, "rotation");
        boolean recorded = number(rotation, "result") == 0;
        expect(what + " orientation", recorded ? number(rotation, "exifOrientation") : 1,
                info.getOrientation());
        expect(what + " orientation recorded", recorded, info.isOrientationRecorded());
        checkTurn(what, info);
        Map<String, Object> screennail = object(json, "screennail");
        boolean hasPreview = preview.bytes != null;
        expect(what + " preview length", hasPreview ? number(screennail, "size") : 0,
                info.getPreviewLength());
        expect(what + " preview length = kpz preview's", hasPreview ? preview.bytes.length : 0,
                info.getPreviewLength());
        expect(what + " preview width", hasPreview ? number(screennail, "width") : 0,
                info.getPreviewWidth());
        expect(what + " preview height", hasPreview ? number(screennail, "height") : 0,
                info.getPreviewHeight());
        expect(what + " has preview", hasPreview, info.hasPreview());
        Map<String, Object> thumb = object(json, "thumbnail");
        boolean hasThumbnail = thumbnail.bytes != null;
        expect(what + " thumbnail length", hasThumbnail ? number(thumb, "size") : 0,
                info.getThumbnailLength());
        expect(what + " thumbnail length = kpz thumbnail's",
                hasThumbnail ? thumbnail.bytes.length : 0, info.getThumbnailLength());
        expect(what + " has thumbnail", hasThumbnail, info.hasThumbnail());
        Map<String, Object> model = object(json, "model");
        expect(what + " model", number(model, "result") == 0 ? model.get("value") : null,
                info.getModel());
        Map<String, Object> dt = object(json, "dateTimeOriginal");
        String dateTime = number(dt, "result") != 0 ? null
                : String.format(Locale.ROOT, "%04d:%02d:%02d %02d:%02d:%02d", number(dt, "year"),
                        number(dt, "month"), number(dt, "day"), number(dt, "hour"),
                        number(dt, "minute"), number(dt, "second"));
        expect(what + " date-time", dateTime, info.getDateTimeOriginal());
    }

    // The turn an app applies: rotate clockwise, then mirror left to right,
    // must give the orientation's transform of the unit square's corners.
    private void checkTurn(String what, KpzInfo info) {
        // Where the stored picture's x axis and y axis end up, per orientation
        // (Exif: 1 normal ... 8 turned 90 degrees counter-clockwise to show).
        int[][] axes = {
            {1, 0, 0, 1}, {-1, 0, 0, 1}, {-1, 0, 0, -1}, {1, 0, 0, -1},
            {0, 1, 1, 0}, {0, 1, -1, 0}, {0, -1, -1, 0}, {0, -1, 1, 0},
        };
        int deg = info.getRotationDegrees();
        // Clockwise on screen (y down): (x, y) -> (-y, x) per quarter turn.
        int[] x = {1, 0};
        int[] y = {0, 1};
        for (int q = 0; q < deg / 90; q++) {
            x = new int[] {-x[1], x[0]};
            y = new int[] {-y[1], y[0]};
        }
        if (info.isFlipped()) {
            x = new int[] {-x[0], x[1]};
            y = new int[] {-y[0], y[1]};
        }
        int[] want = axes[info.getOrientation() - 1];
        int[] got = {x[0], x[1], y[0], y[1]};
        if (!Arrays.equals(want, got)) {
            failures.add(what + ": orientation " + info.getOrientation() + " as " + deg
                    + " degrees" + (info.isFlipped() ? " and flipped" : "") + " turns the axes to "
                    + Arrays.toString(got) + ", not " + Arrays.toString(want));
        }
    }

    private void checkThumbnail(String what, String key, String path, boolean viaFd,
            ToolAnswer thumbnail) throws Exception {
        what += " getThumbnail";
        byte[] got;
        try {
            got = through(what, path, viaFd,
                    fd -> fd < 0 ? kpz.getThumbnail(path) : kpz.getThumbnail(fd));
        } catch (KpzException e) {
            expectFailure(what, key, "thumbnail", e, thumbnail.words);
            return;
        }
        if (thumbnail.bytes == null) {
            failures.add(what + ": gave " + got.length + " bytes, kpz thumbnail says <"
                    + thumbnail.words + ">");
        } else if (!Arrays.equals(thumbnail.bytes, got)) {
            failures.add(what + ": " + got.length + " bytes differ from kpz thumbnail's "
                    + thumbnail.bytes.length);
        }
    }

    private void checkPreview(String what, String key, String path, boolean viaFd,
            ToolAnswer preview) throws Exception {
        what += " readPreview";
        // Too small first: the size needed, nothing read, the buffer unchanged.
        ByteBuffer small = ByteBuffer.allocateDirect(16);
        small.position(3).limit(9);
        int needed;
        try {
            needed = through(what, path, viaFd,
                    fd -> fd < 0 ? kpz.readPreview(path, small) : kpz.readPreview(fd, small));
        } catch (KpzException e) {
            expectFailure(what, key, "preview", e, preview.words);
            return;
        }
        if (preview.bytes == null) {
            failures.add(what + ": gave " + needed + ", kpz preview says <" + preview.words + ">");
            return;
        }
        expect(what + " length", preview.bytes.length, needed);
        if (needed > small.capacity() && (small.position() != 3 || small.limit() != 9
                || !Arrays.equals(new byte[16], contents(small, 16)))) {
            failures.add(what + ": a buffer too small was changed");
        }
        if (buffer.capacity() < needed) {
            buffer = ByteBuffer.allocateDirect(needed);
        }
        final ByteBuffer into = buffer;
        into.position(1);  // the call starts at 0 whatever the position
        int n = through(what, path, viaFd,
                fd -> fd < 0 ? kpz.readPreview(path, into) : kpz.readPreview(fd, into));
        expect(what + " length read", preview.bytes.length, n);
        expect(what + " position", 0, into.position());
        expect(what + " limit", n, into.limit());
        byte[] got = new byte[into.remaining()];
        into.duplicate().get(got);
        if (!Arrays.equals(preview.bytes, got)) {
            failures.add(what + ": the bytes differ from kpz preview's");
        }
    }

    private void expectFailure(String what, String key, String call, KpzException e,
            String toolWords) {
        if (toolWords == null) {
            failures.add(what + ": failed with " + e.getKind() + " <" + e.getMessage()
                    + ">, kpz succeeds");
            return;
        }
        expect(what + " words", toolWords, e.getMessage());
        KpzException.Kind kind = KINDS.containsKey(key + "/" + call) ? KINDS.get(key + "/" + call)
                : KINDS.get(key);
        if (kind == null) {
            failures.add(what + ": failed with " + e.getKind() + ", no kind listed for " + key);
        } else {
            expect(what + " kind", kind, e.getKind());
        }
        expect(what + " errno", 0, e.getErrno());
    }

    // A thumbnail claiming 600 MB inside a sparse file that holds it: refused
    // as too large in words, whatever kpz answers, by path and descriptor
    // (once, one call allocated the 600 MB natively and again as a byte[]).
    private void checkHugeThumbnail(String path) throws Exception {
        String words = "the thumbnail stored in this file is too large (629145600 bytes; a "
                + "thumbnail is at most 262144)";
        for (boolean viaFd : new boolean[] {false, true}) {
            String what = "hugethumb getThumbnail" + (viaFd ? " (descriptor)" : " (path)");
            try {
                byte[] got = through(what, path, viaFd,
                        fd -> fd < 0 ? kpz.getThumbnail(path) : kpz.getThumbnail(fd));
                failures.add(what + ": gave " + got.length + " bytes, not a refusal");
            } catch (KpzException e) {
                expect(what + " kind", KpzException.Kind.DAMAGED, e.getKind());
                expect(what + " words", words, e.getMessage());
            }
        }
    }

    // Every failing file listed must be among the fixtures (a list that
    // names nothing checks nothing).
    private void checkEveryKindWasMet(TreeSet<String> keys) {
        for (String listed : KINDS.keySet()) {
            String key = listed.contains("/") ? listed.substring(0, listed.indexOf('/')) : listed;
            if (!keys.contains(key)) {
                failures.add("kind listed for " + listed + ", but there is no such fixture");
            }
        }
    }

    // ---- descriptors and paths the tool cannot be given -----------------

    private void checkBadDescriptors(String path) throws Exception {
        // Closed: a number no descriptor of this process can have.
        int closed = openFilesLimit();
        expectUnreadable("closed descriptor " + closed, closed, EBADF,
                "the file cannot be read (bad file descriptor)");
        expectUnreadable("descriptor -1", -1, EBADF, "the file cannot be read (bad file descriptor)");
        // A pipe: the one to a child's standard input.
        Process child = new ProcessBuilder("sleep", "60").start();
        try {
            int pipe = -1;
            try (DirectoryStream<Path> fds = Files.newDirectoryStream(Paths.get("/proc/self/fd"))) {
                for (Path p : fds) {
                    int n = Integer.parseInt(p.getFileName().toString());
                    String target = linkOf(n);
                    if (target != null && target.startsWith("pipe:")) {
                        pipe = n;
                    }
                }
            }
            if (pipe < 0) {
                failures.add("pipe: no pipe descriptor found");
            } else {
                expectUnreadable("pipe " + pipe, pipe, ESPIPE, toolWordsOf(fifo()));
            }
        } finally {
            child.destroyForcibly();
            child.waitFor(10, TimeUnit.SECONDS);
        }
    }

    // The soft limit of open files ("Max open files" in /proc/self/limits):
    // every descriptor of this process is below it.
    private void expectUnreadable(String what, int fd, int errno, String words) {
        List<String> calls = Arrays.asList("getInfo", "getThumbnail", "readPreview");
        for (String call : calls) {
            try {
                switch (call) {
                    case "getInfo":
                        kpz.getInfo(fd);
                        break;
                    case "getThumbnail":
                        kpz.getThumbnail(fd);
                        break;
                    default:
                        kpz.readPreview(fd, buffer);
                        break;
                }
                failures.add(what + " " + call + ": succeeded");
            } catch (KpzException e) {
                expect(what + " " + call + " kind", KpzException.Kind.UNREADABLE, e.getKind());
                expect(what + " " + call + " errno", errno, e.getErrno());
                expect(what + " " + call + " words", words, e.getMessage());
            }
        }
    }

    // A named pipe, made once.
    private String fifoPath;

    private String fifo() throws Exception {
        if (fifoPath == null) {
            fifoPath = new File(workDir, "gallery-fifo").getPath();
            new File(fifoPath).delete();
            Process p = new ProcessBuilder("mkfifo", fifoPath).inheritIO().start();
            if (!p.waitFor(30, TimeUnit.SECONDS) || p.exitValue() != 0) {
                failures.add("mkfifo failed");
            }
        }
        return fifoPath;
    }

    // kpz's words for `path` (kpz thumbnail, which opens a named pipe
    // without waiting for a writer).
    private String toolWordsOf(String path) throws Exception {
        String words = tool(path, "thumbnail").words;
        return words == null ? "(kpz read " + path + ")" : words;
    }

    private void checkNamedPipeAndMissingFile() throws Exception {
        String fifo = fifo();
        String missing = new File(workDir, "no-such-file.kpz").getPath();
        String[][] cases = {{fifo, String.valueOf(ESPIPE)}, {missing, String.valueOf(ENOENT)}};
        for (String[] c : cases) {
            String path = c[0];
            String words = toolWordsOf(path);
            try {
                kpz.getInfo(path);
                failures.add(path + ": getInfo succeeded");
            } catch (KpzException e) {
                expect(path + " kind", KpzException.Kind.UNREADABLE, e.getKind());
                expect(path + " errno", Integer.parseInt(c[1]), e.getErrno());
                expect(path + " words", words, e.getMessage());
            }
        }
        try {
            kpz.getThumbnail(workDir.getPath());
            failures.add("a directory: getThumbnail succeeded");
        } catch (KpzException e) {
            expect("a directory kind", KpzException.Kind.UNREADABLE, e.getKind());
            expect("a directory errno", EISDIR, e.getErrno());
            expect("a directory words", "is a directory, not a KPZ raw file", e.getMessage());
        }
    }

    private void checkArguments(String path) throws Exception {
        expectThrows("null path", NullPointerException.class, () -> kpz.getInfo((String) null));
        expectThrows("heap buffer", IllegalArgumentException.class,
                () -> kpz.readPreview(path, ByteBuffer.allocate(100000)));
        expectThrows("read-only buffer", IllegalArgumentException.class,
                () -> kpz.readPreview(path, ByteBuffer.allocateDirect(100000).asReadOnlyBuffer()));
        expectThrows("zero in path", IllegalArgumentException.class,
                () -> kpz.getThumbnail(path + "\0x"));
    }

    private interface Thrower {
        void run() throws Exception;
    }

    private void expectThrows(String what, Class<? extends Exception> type, Thrower t) {
        try {
            t.run();
            failures.add(what + ": no " + type.getSimpleName());
        } catch (Exception e) {
            if (!type.isInstance(e)) {
                failures.add(what + ": " + e + " instead of " + type.getSimpleName());
            }
        }
    }

    // ---- eight threads, 10,000 rounds, memory ---------------------------

    private void checkThreadsAndMemory(Properties fx, long toleranceKiB) throws Exception {
        List<String> cmd = new ArrayList<>();
        cmd.add(ProcessHandle.current().info().command().orElse("java"));
        String flags = System.getProperty("kpztest.childJvmFlags", "").trim();
        if (!flags.isEmpty()) {
            cmd.addAll(Arrays.asList(flags.split("\\s+")));
        }
        // The Java heap fixed and touched up front, so that it cannot account
        // for growth; the JIT kept to its first tier, whose memory settles
        // within the warm-up (the optimising tier's own memory grows for tens
        // of thousands of calls, 15 MB and more, and would hide a leak or fake
        // one). Native memory is what remains.
        cmd.addAll(Arrays.asList("-Xms64m", "-Xmx64m", "-XX:+AlwaysPreTouch",
                "-XX:TieredStopAtLevel=1"));
        cmd.add("-Djava.library.path=" + System.getProperty("java.library.path"));
        cmd.add("-cp");
        cmd.add(System.getProperty("java.class.path"));
        cmd.add(KpzGalleryCheck.class.getName());
        cmd.add("--stress");
        cmd.add(fx.getProperty("gallery.text.path"));
        for (int i = 1; i <= THREADS; i++) {
            cmd.add(fx.getProperty(i == 6 ? "gallery.large.path" : "gallery.orient" + i + ".path"));
        }
        // A name of its own: the check also runs under -Xcheck:jni, at the same time.
        File errFile = File.createTempFile("gallery-stress", ".stderr", workDir);
        ProcessBuilder pb = new ProcessBuilder(cmd);
        pb.redirectError(errFile);
        Process p = pb.start();
        String out = new String(p.getInputStream().readAllBytes(), StandardCharsets.UTF_8).trim();
        if (!p.waitFor(600, TimeUnit.SECONDS)) {
            p.destroyForcibly();
            p.waitFor();
            failures.add("threads: timed out");
            return;
        }
        String err = new String(Files.readAllBytes(errFile.toPath()), StandardCharsets.UTF_8);
        for (String line : err.split("\n")) {
            if (JNI_CHECK_LINE.matcher(line).find()) {
                System.out.println("JNI check in the threads' JVM: " + line);
                failures.add("threads: JNI check: " + line);
            }
        }
        String[] f = out.split(" ");
        if (p.exitValue() != 0 || f.length != 4 || !f[0].equals("ok")) {
            failures.add("threads: " + out + " (exit " + p.exitValue() + ", stderr in " + errFile + ")");
            return;
        }
        long warm = Long.parseLong(f[2]);
        long end = Long.parseLong(f[3]);
        System.out.println("threads: " + f[1] + " correct rounds of 4 calls; VmRSS " + warm
                + " KiB after warm-up, " + end + " KiB at the end (tolerance " + toleranceKiB + " KiB)");
        expect("threads: correct rounds", String.valueOf(ROUNDS), f[1]);
        if (warm <= 0 || end - warm > toleranceKiB) {
            failures.add("threads: native memory grew by " + (end - warm) + " KiB");
        }
        errFile.delete();
    }

    // Arguments: a file that is not KPZ, then one file per thread. Each round
    // of a thread: getInfo, getThumbnail, readPreview into the thread's own
    // buffer (by path and through the thread's descriptor, by turns) and a
    // getInfo that fails; each answer must equal the thread's first. Prints
    // "ok <rounds> <rss after warm-up KiB> <rss at end KiB>" or "fail <why>".
    private static int childStress(String[] args) throws Exception {
        final String notKpz = args[0];
        final int threads = args.length - 1;
        final KaviKPZInterface kpz = new KaviKPZInterface();
        final RandomAccessFile[] files = new RandomAccessFile[threads];
        final int[] fds = new int[threads];
        final String[] paths = Arrays.copyOfRange(args, 1, args.length);
        openKept(paths, KEPT_OFFSET, files, fds);
        final AtomicLong good = new AtomicLong();
        final List<String> problems = new ArrayList<>();
        final long[] rss = new long[2];
        final CyclicBarrier warmedUp = new CyclicBarrier(threads, () -> rss[0] = vmRssKiB());
        final int rounds = ROUNDS / threads;
        runThreads(threads, me -> {
            final String path = paths[me];
            KpzInfo first = kpz.getInfo(path);
            byte[] thumb = kpz.getThumbnail(path);
            ByteBuffer buf = ByteBuffer.allocateDirect((int) first.getPreviewLength());
            kpz.readPreview(path, buf);
            byte[] preview = new byte[buf.remaining()];
            buf.duplicate().get(preview);
            byte[] got = new byte[preview.length];
            for (int i = -WARM_UP_ROUNDS; i < rounds; i++) {
                if (i == 0) {
                    warmedUp.await();
                }
                boolean byFd = (i & 1) != 0;
                KpzInfo info = byFd ? kpz.getInfo(fds[me]) : kpz.getInfo(path);
                byte[] th = byFd ? kpz.getThumbnail(fds[me]) : kpz.getThumbnail(path);
                int n = byFd ? kpz.readPreview(fds[me], buf) : kpz.readPreview(path, buf);
                buf.duplicate().get(got);
                boolean failedRight = false;
                try {
                    kpz.getInfo(notKpz);
                } catch (KpzException e) {
                    failedRight = e.getKind() == KpzException.Kind.NOT_KPZ;
                }
                boolean same = info.toString().equals(first.toString())
                        && Arrays.equals(th, thumb) && n == preview.length
                        && Arrays.equals(got, preview) && failedRight;
                if (i >= 0 && same) {
                    good.incrementAndGet();
                } else if (!same) {
                    synchronized (problems) {
                        problems.add("thread " + me + " round " + i + " differs");
                    }
                }
            }
        }, problems);
        rss[1] = vmRssKiB();
        closeKept(paths, KEPT_OFFSET, files, fds, problems);
        return report(problems, good.get(), rss[0], rss[1]);
    }

    // One file as a gallery shows it, for measuring what is read (strace):
    // `--grid <path> thumbnail` makes the grid's calls (getInfo, getThumbnail),
    // `--grid <path> preview` the full view's (getInfo, readPreview).
    private static int childOneCell(String path, boolean preview) throws Exception {
        KaviKPZInterface kpz = new KaviKPZInterface();
        KpzInfo info = kpz.getInfo(path);
        int bytes;
        if (preview) {
            bytes = kpz.readPreview(path, ByteBuffer.allocateDirect((int) info.getPreviewLength()));
        } else {
            bytes = kpz.getThumbnail(path).length;
        }
        System.out.println(info + ": " + bytes + " bytes of the picture");
        return 0;
    }

    // ---- the kpz tool -----------------------------------------------------

    private static final class Ran {
        byte[] out;
        String err;
        int exit;
    }

    private Ran run(List<String> cmd) throws Exception {
        ProcessBuilder pb = new ProcessBuilder(cmd);
        File errFile = File.createTempFile("kpz", ".stderr", workDir);
        pb.redirectError(errFile);
        Process p = pb.start();
        Ran ran = new Ran();
        ran.out = p.getInputStream().readAllBytes();
        if (!p.waitFor(120, TimeUnit.SECONDS)) {
            p.destroyForcibly();
            p.waitFor();
        }
        ran.exit = p.exitValue();
        ran.err = new String(Files.readAllBytes(errFile.toPath()), StandardCharsets.UTF_8);
        errFile.delete();
        return ran;
    }

    // `kpz preview|thumbnail <path> -o -`.
    private ToolAnswer tool(String path, String command) throws Exception {
        Ran ran = run(Arrays.asList(kpzTool, command, path, "-o", "-"));
        ToolAnswer answer = new ToolAnswer();
        if (ran.exit == 0) {
            answer.bytes = ran.out;
            return answer;
        }
        String prefix = "kpz: " + path + ": ";
        String line = ran.err.split("\n")[0];
        if (!line.startsWith(prefix)) {
            failures.add("kpz " + command + " " + path + ": unexpected output <" + ran.err + ">");
            answer.words = "";
            return answer;
        }
        answer.words = line.substring(prefix.length());
        return answer;
    }

    // `kpz info --json <path>` as a map.
    private Map<String, Object> toolJson(String path) throws Exception {
        Ran ran = run(Arrays.asList(kpzTool, "info", "--json", path));
        String text = new String(ran.out, StandardCharsets.UTF_8).trim();
        try {
            @SuppressWarnings("unchecked")
            Map<String, Object> json = (Map<String, Object>) new Json(text).value();
            return json;
        } catch (RuntimeException e) {
            failures.add("kpz info --json " + path + ": cannot read <" + text + ">: " + e);
            Map<String, Object> none = new LinkedHashMap<>();
            none.put("error", "(kpz info gave no JSON)");
            return none;
        }
    }

    @SuppressWarnings("unchecked")
    private static Map<String, Object> object(Map<String, Object> json, String key) {
        Object value = json.get(key);
        return value instanceof Map ? (Map<String, Object>) value : new HashMap<>();
    }

    private static long number(Map<String, Object> json, String key) {
        Object value = json.get(key);
        return value instanceof Long ? (Long) value : Long.MIN_VALUE;
    }

    // A small reader of the JSON kpz writes: objects, arrays, strings,
    // integers, true, false, null.
    private static final class Json {
        private final String s;
        private int i;

        Json(String s) {
            this.s = s;
        }

        Object value() {
            skip();
            char c = s.charAt(i);
            if (c == '{') {
                Map<String, Object> map = new LinkedHashMap<>();
                i++;
                skip();
                if (s.charAt(i) == '}') {
                    i++;
                    return map;
                }
                while (true) {
                    skip();
                    String key = (String) value();
                    skip();
                    expectChar(':');
                    map.put(key, value());
                    skip();
                    if (s.charAt(i) == ',') {
                        i++;
                        continue;
                    }
                    expectChar('}');
                    return map;
                }
            }
            if (c == '[') {
                List<Object> list = new ArrayList<>();
                i++;
                skip();
                if (s.charAt(i) == ']') {
                    i++;
                    return list;
                }
                while (true) {
                    list.add(value());
                    skip();
                    if (s.charAt(i) == ',') {
                        i++;
                        continue;
                    }
                    expectChar(']');
                    return list;
                }
            }
            if (c == '"') {
                StringBuilder sb = new StringBuilder();
                i++;
                while (s.charAt(i) != '"') {
                    char ch = s.charAt(i++);
                    if (ch == '\\') {
                        char e = s.charAt(i++);
                        switch (e) {
                            case 'n': sb.append('\n'); break;
                            case 't': sb.append('\t'); break;
                            case 'r': sb.append('\r'); break;
                            case 'b': sb.append('\b'); break;
                            case 'f': sb.append('\f'); break;
                            case 'u':
                                sb.append((char) Integer.parseInt(s.substring(i, i + 4), 16));
                                i += 4;
                                break;
                            default: sb.append(e); break;
                        }
                    } else {
                        sb.append(ch);
                    }
                }
                i++;
                return sb.toString();
            }
            for (String word : new String[] {"true", "false", "null"}) {
                if (s.startsWith(word, i)) {
                    i += word.length();
                    return word.equals("null") ? null : Boolean.valueOf(word.equals("true"));
                }
            }
            int start = i;
            while (i < s.length() && "+-0123456789.eE".indexOf(s.charAt(i)) >= 0) {
                i++;
            }
            return Long.parseLong(s.substring(start, i));
        }

        private void skip() {
            while (i < s.length() && Character.isWhitespace(s.charAt(i))) {
                i++;
            }
        }

        private void expectChar(char c) {
            if (s.charAt(i) != c) {
                throw new IllegalArgumentException("'" + c + "' expected at " + i);
            }
            i++;
        }
    }

    // ---- helpers --------------------------------------------------------

    private void expect(String what, Object expected, Object actual) {
        if (expected instanceof Integer && actual instanceof Long) {
            expected = Long.valueOf((Integer) expected);
        }
        if (expected instanceof Long && actual instanceof Integer) {
            actual = Long.valueOf((Integer) actual);
        }
        if (expected == null ? actual != null : !expected.equals(actual)) {
            failures.add(what + ": expected <" + expected + "> but was <" + actual + ">");
        }
    }

    private static byte[] contents(ByteBuffer b, int n) {
        byte[] out = new byte[n];
        ByteBuffer d = b.duplicate();
        d.clear();
        d.get(out);
        return out;
    }
}

// KaviKPZInterfaceCheck.java - runs KaviKPZInterface.getScreennailNative and
// getScreennailFromFd on a real JVM against the built libKpzInterface.so, over
// the files written by kpz_java_fixtures (tests/java/make_fixtures.cpp).
//
//   java -Djava.library.path=<build>/lib -cp kpzinterface.jar:check.jar \
//       kpztest.KaviKPZInterfaceCheck <fixtures dir> [rss tolerance KiB]
//
// The checking process never loads the library itself: every case runs in a
// child JVM (same java, class path and library path), so that the child's
// standard error - where the Android log library prints the entry's lines -
// can be captured whole for that one call. Each case compares the result (the
// exact bytes, null, or an empty array) and the complete list of the entry's
// log lines (priority letter and message, in order); lines of the library's
// own logger on the same stream are not the entry's and are left out.
//
// Descriptors: every fixture is also read through a descriptor of its own
// (a RandomAccessFile's, whose number the child finds in /proc/self/fd), and
// must give what its path gives; the descriptor's offset must not move and it
// must stay open. A closed descriptor, a pipe (the child's standard input)
// and -1 give null with their own log lines.
//
// The concurrency case runs 8 threads x 1,000 calls on 8 different files and
// compares VmRSS (from /proc/self/status) after a warm-up of 50 calls per
// thread with VmRSS at the end. The Java heap is fixed and touched up front
// (-Xms=-Xmx, AlwaysPreTouch) so that it cannot account for growth; what
// remains is native memory and JIT code. The tolerance (default 16 MiB) lies
// far below what one leaked buffer per call would add (the smallest screennail
// is 24 KB: 8,000 calls leak about 190 MB; the 64 KiB file head alone 500 MB;
// the 2.7 KB path characters 21 MB). It runs twice: through the paths, and
// through descriptors (each thread its own, opened once and kept).
//
// Exit status 0 when every case passed; each failure is printed.
package kpztest;

import com.kavi.dtv.kpzinterface.KaviKPZInterface;

import java.io.File;
import java.io.FileInputStream;
import java.io.InputStream;
import java.io.RandomAccessFile;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Paths;
import java.security.MessageDigest;
import java.security.NoSuchAlgorithmException;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Properties;
import java.util.concurrent.CyclicBarrier;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

import static kpztest.ChildSupport.closeKept;
import static kpztest.ChildSupport.descriptorOf;
import static kpztest.ChildSupport.openFilesLimit;
import static kpztest.ChildSupport.linkOf;
import static kpztest.ChildSupport.openKept;
import static kpztest.ChildSupport.realPath;
import static kpztest.ChildSupport.report;
import static kpztest.ChildSupport.runThreads;
import static kpztest.ChildSupport.vmRssKiB;

public final class KaviKPZInterfaceCheck {
    // One line of the Android log library on standard error:
    // "<tag> <priority letter> <MM-DD hh:mm:ss> <pid> <tid> <message>".
    private static final Pattern LOG_LINE = Pattern.compile(
            "^KpzInterface ([VDIWEF]) \\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d +\\d+ +\\d+ (.*)$");

    // Result codes of the raw facade that the entry logs.
    private static final int RAW_ERR_NOT_FOUND = -302;
    private static final int RAW_ERR_NO_DATA = -100;

    private static final int THREADS = 8;
    private static final int CALLS = 1000;
    private static final int WARM_UP_CALLS = 50;

    // Where the descriptor cases put the descriptor's offset before the call.
    private static final long KEPT_OFFSET = 5;

    private KaviKPZInterfaceCheck() {}

    public static void main(String[] args) throws Exception {
        if (args.length >= 1 && args[0].equals("--call")) {
            System.exit(childCall(args.length > 1 ? args[1] : null));
        }
        if (args.length >= 1 && args[0].equals("--stress")) {
            System.exit(childStress(Arrays.copyOfRange(args, 1, args.length), false));
        }
        if (args.length >= 1 && args[0].equals("--stress-fd")) {
            System.exit(childStress(Arrays.copyOfRange(args, 1, args.length), true));
        }
        if (args.length >= 2 && args[0].equals("--call-fd")) {
            System.exit(childCallFd(args[1]));
        }
        if (args.length >= 1 && args[0].equals("--call-fd-closed")) {
            System.exit(childCallClosedFd());
        }
        if (args.length >= 1 && args[0].equals("--call-fd-stdin")) {
            System.exit(childCallFdNumber(0, "pipe:"));
        }
        if (args.length >= 2 && args[0].equals("--call-fd-number")) {
            System.exit(childCallFdNumber(Integer.parseInt(args[1]), null));
        }
        if (args.length < 1) {
            System.err.println("usage: KaviKPZInterfaceCheck <fixtures dir> [rss tolerance KiB]");
            System.exit(2);
        }
        long toleranceKiB = args.length > 1 ? Long.parseLong(args[1]) : 16 * 1024;
        System.exit(new KaviKPZInterfaceCheck().runAll(args[0], toleranceKiB));
    }

    // ---- child side -----------------------------------------------------

    // One call; prints "null" or "array <length> <sha-256>" on standard output.
    private static int childCall(String path) throws NoSuchAlgorithmException {
        byte[] result = new KaviKPZInterface().getScreennailNative(path);
        System.out.println(result == null ? "null" : "array " + result.length + " " + sha256(result));
        return 0;
    }

    // One call through a descriptor of `path` whose offset is KEPT_OFFSET.
    // Prints "fd <n>", then "null" or "array <length> <sha-256>", then
    // "offset <offset after> <open|closed> next <the byte read there>".
    private static int childCallFd(String path) throws Exception {
        try (RandomAccessFile file = new RandomAccessFile(path, "r")) {
            int fd = descriptorOf(path);
            file.seek(KEPT_OFFSET);
            System.out.println("fd " + fd);
            byte[] result = new KaviKPZInterface().getScreennailFromFd(fd);
            System.out.println(result == null ? "null" : "array " + result.length + " " + sha256(result));
            long after = file.getFilePointer();
            boolean open = realPath(path).equals(linkOf(fd));
            System.out.println("offset " + after + " " + (open ? "open" : "closed") + " next " + file.read());
        }
        return 0;
    }

    // One call with a descriptor that is not open: the soft limit of open
    // files, a number no descriptor of this process can have (a number opened
    // and closed just before may be taken again by the JVM's own threads at
    // any moment). Prints "fd <n>", then "null" or "array ...".
    private static int childCallClosedFd() throws Exception {
        int fd = openFilesLimit();
        if (linkOf(fd) != null) {
            System.out.println("fd " + fd + " is open");
            return 1;
        }
        System.out.println("fd " + fd);
        byte[] result = new KaviKPZInterface().getScreennailFromFd(fd);
        System.out.println(result == null ? "null" : "array " + result.length);
        return 0;
    }

    // One call with descriptor `fd`, which must lead to something starting with
    // `kind` (or to nothing, when `kind` is null). Prints "fd <n>", then
    // "null" or "array ...".
    private static int childCallFdNumber(int fd, String kind) throws Exception {
        String target = fd >= 0 ? linkOf(fd) : null;
        if (kind == null ? target != null : target == null || !target.startsWith(kind)) {
            System.out.println("fd " + fd + " leads to " + target);
            return 1;
        }
        System.out.println("fd " + fd);
        byte[] result = new KaviKPZInterface().getScreennailFromFd(fd);
        System.out.println(result == null ? "null" : "array " + result.length);
        return 0;
    }

    // Arguments: <path> <expected> pairs, one per thread. Through descriptors
    // (`viaFd`), each thread calls with a descriptor of its own, opened before
    // the threads start and positioned at KEPT_OFFSET, which must stay there.
    // Prints "ok <calls> <rss after warm-up KiB> <rss at end KiB>" or
    // "fail <reason>" (ChildSupport.report).
    private static int childStress(String[] pairs, boolean viaFd) throws Exception {
        final int threads = pairs.length / 2;
        final String[] paths = new String[threads];
        final byte[][] expected = new byte[threads][];
        for (int i = 0; i < threads; i++) {
            paths[i] = pairs[2 * i];
            expected[i] = Files.readAllBytes(Paths.get(pairs[2 * i + 1]));
        }
        final RandomAccessFile[] files = new RandomAccessFile[threads];
        final int[] fds = new int[threads];
        if (viaFd) {
            openKept(paths, KEPT_OFFSET, files, fds);
        }
        final KaviKPZInterface entry = new KaviKPZInterface();
        final AtomicInteger good = new AtomicInteger();
        final List<String> failures = new ArrayList<>();
        final long[] rss = new long[2];
        final CyclicBarrier warmedUp = new CyclicBarrier(threads, () -> rss[0] = vmRssKiB());
        runThreads(threads, me -> {
            for (int i = 0; i < WARM_UP_CALLS; i++) {
                if (viaFd) {
                    entry.getScreennailFromFd(fds[me]);
                } else {
                    entry.getScreennailNative(paths[me]);
                }
            }
            warmedUp.await();
            for (int i = 0; i < CALLS; i++) {
                byte[] got = viaFd ? entry.getScreennailFromFd(fds[me])
                        : entry.getScreennailNative(paths[me]);
                if (got != null && Arrays.equals(got, expected[me])) {
                    good.incrementAndGet();
                } else {
                    synchronized (failures) {
                        failures.add("thread " + me + " call " + i + ": "
                                + (got == null ? "null" : got.length + " bytes differ"));
                    }
                }
            }
        }, failures);
        rss[1] = vmRssKiB();
        if (viaFd) {
            closeKept(paths, KEPT_OFFSET, files, fds, failures);
        }
        return report(failures, good.get(), rss[0], rss[1]);
    }

    // ---- checking side --------------------------------------------------

    private final List<String> failures = new ArrayList<>();
    private Properties fx;
    private File workDir;

    private static final class Run {
        String stdout = "";
        String stderr = "";
        int exit = -1;
    }

    private int runAll(String fixturesDir, long toleranceKiB) throws Exception {
        fx = new Properties();
        try (InputStream in = new FileInputStream(new File(fixturesDir, "fixtures.properties"))) {
            fx.load(in);
        }
        workDir = new File(fixturesDir);

        checkReturnsScreennail("le");
        checkReturnsScreennail("be");
        checkReturnsScreennail("m372");
        checkMissingFile();
        checkNoScreennailLocation();
        checkShortRead("past");
        checkShortRead("huge");
        checkReturnsScreennail("empty");
        checkNullPath();
        checkConcurrentCallsAreCorrectAndLeakNothing(toleranceKiB, false);

        List<String> keys = new ArrayList<>(Arrays.asList("le", "be", "m372", "nosn", "past", "huge", "empty"));
        int stressCount = Integer.parseInt(fx.getProperty("stress.count"));
        for (int i = 0; i < stressCount; i++) {
            keys.add("stress." + i);
        }
        for (String key : keys) {
            checkDescriptorGivesWhatThePathGives(key);
        }
        checkClosedDescriptor();
        checkPipeDescriptor();
        checkNegativeDescriptor();
        checkConcurrentCallsAreCorrectAndLeakNothing(toleranceKiB, true);

        if (failures.isEmpty()) {
            System.out.println("KaviKPZInterfaceCheck: all cases passed");
            return 0;
        }
        for (String f : failures) {
            System.out.println("FAILED: " + f);
        }
        return 1;
    }

    // Bytes (or, for "empty", an empty array) and the four progress lines.
    private void checkReturnsScreennail(String key) throws Exception {
        String path = fx.getProperty(key + ".path");
        byte[] expected = Files.readAllBytes(Paths.get(fx.getProperty(key + ".expected")));
        Run run = child(path);
        expectEquals(key + ": result", "array " + expected.length + " " + sha256(expected), run.stdout);
        expectLog(key, run, Arrays.asList(
                "I getScreennailNative called.",
                "I filepath:" + path,
                "I " + screennailInfoLine(key)));
    }

    private void checkMissingFile() throws Exception {
        String path = new File(workDir, "missing.kpz").getPath();
        Run run = child(path);
        expectEquals("missing: result", "null", run.stdout);
        expectLog("missing", run, Arrays.asList(
                "I getScreennailNative called.",
                "I filepath:" + path,
                "E raw.Initialize ERROR. ret=" + RAW_ERR_NOT_FOUND));
    }

    private void checkNoScreennailLocation() throws Exception {
        String path = fx.getProperty("nosn.path");
        Run run = child(path);
        expectEquals("nosn: result", "null", run.stdout);
        expectLog("nosn", run, Arrays.asList(
                "I getScreennailNative called.",
                "I filepath:" + path,
                "E raw.GetScreennailInfo ERROR. ret=" + RAW_ERR_NO_DATA));
    }

    // A length beyond the end of the file: null and the short count.
    private void checkShortRead(String key) throws Exception {
        String path = fx.getProperty(key + ".path");
        Run run = child(path);
        expectEquals(key + ": result", "null", run.stdout);
        expectLog(key, run, Arrays.asList(
                "I getScreennailNative called.",
                "I filepath:" + path,
                "I " + screennailInfoLine(key),
                "E fileIo.ReadU8 ERROR. readSize=" + fx.getProperty(key + ".readSize")));
    }

    // A null path gives null and no crash.
    private void checkNullPath() throws Exception {
        Run run = child(null);
        expectEquals("null path: result", "null", run.stdout);
        expectLog("null path", run, Arrays.asList(
                "I getScreennailNative called.",
                "E path is null."));
    }

    // The fixture `key` through a descriptor: what its path gives (compared
    // with a call through the path, and with the expected bytes), the log
    // lines of the descriptor method, the offset kept and the descriptor open.
    private void checkDescriptorGivesWhatThePathGives(String key) throws Exception {
        String path = fx.getProperty(key + ".path");
        String what = key + " through a descriptor";
        Run byPath = child(path);
        Run run = childWith(Arrays.asList("--call-fd", path));
        String[] out = run.stdout.split("\n");
        if (out.length != 3 || !out[0].startsWith("fd ")) {
            failures.add(what + ": unexpected output <" + run.stdout + ">\n" + run.stderr);
            return;
        }
        expectEquals(what + ": the same result as through the path", byPath.stdout, out[1]);
        String expectedFile = fx.getProperty(key + ".expected");
        List<String> lines = new ArrayList<>(Arrays.asList(
                "I getScreennailFromFd called.",
                "I fd:" + out[0].substring(3)));
        if (key.equals("nosn")) {
            expectEquals(what + ": result", "null", out[1]);
            lines.add("E raw.GetScreennailInfo ERROR. ret=" + RAW_ERR_NO_DATA);
        } else if (expectedFile != null) {
            byte[] expected = Files.readAllBytes(Paths.get(expectedFile));
            expectEquals(what + ": result", "array " + expected.length + " " + sha256(expected), out[1]);
            lines.add("I " + screennailInfoLine(key));
        } else {
            expectEquals(what + ": result", "null", out[1]);
            lines.add("I " + screennailInfoLine(key));
            lines.add("E pread ERROR. readSize=" + fx.getProperty(key + ".readSize") + " errno=0");
        }
        expectLog(what, run, lines);
        byte[] file = Files.readAllBytes(Paths.get(path));
        expectEquals(what + ": the descriptor afterwards",
                "offset " + KEPT_OFFSET + " open next " + (file[(int) KEPT_OFFSET] & 0xFF), out[2]);
    }

    private void checkClosedDescriptor() throws Exception {
        Run run = childWith(Arrays.asList("--call-fd-closed"));
        String[] out = run.stdout.split("\n");
        if (out.length != 2 || !out[0].matches("fd \\d+")) {
            failures.add("closed descriptor: unexpected output <" + run.stdout + ">\n" + run.stderr);
            return;
        }
        String fd = out[0].substring(3);
        expectEquals("closed descriptor: result", "null", out[1]);
        expectLog("closed descriptor", run, Arrays.asList(
                "I getScreennailFromFd called.",
                "I fd:" + fd,
                "E fd is not open. fd=" + fd));
    }

    // The child's standard input is the pipe ProcessBuilder makes.
    private void checkPipeDescriptor() throws Exception {
        Run run = childWith(Arrays.asList("--call-fd-stdin"));
        expectEquals("pipe: output", "fd 0\nnull", run.stdout);
        expectLog("pipe", run, Arrays.asList(
                "I getScreennailFromFd called.",
                "I fd:0",
                "E fd is not seekable. fd=0"));
    }

    private void checkNegativeDescriptor() throws Exception {
        Run run = childWith(Arrays.asList("--call-fd-number", "-1"));
        expectEquals("fd -1: output", "fd -1\nnull", run.stdout);
        expectLog("fd -1", run, Arrays.asList(
                "I getScreennailFromFd called.",
                "I fd:-1",
                "E fd is negative. fd=-1"));
    }

    private void checkConcurrentCallsAreCorrectAndLeakNothing(long toleranceKiB, boolean viaFd)
            throws Exception {
        String what = viaFd ? "stress through descriptors" : "stress";
        int count = Integer.parseInt(fx.getProperty("stress.count"));
        List<String> cmd = javaCommand();
        cmd.add(cmd.size() - 1, "-Xms64m");
        cmd.add(cmd.size() - 1, "-Xmx64m");
        cmd.add(cmd.size() - 1, "-XX:+AlwaysPreTouch");
        cmd.add(viaFd ? "--stress-fd" : "--stress");
        for (int i = 0; i < count && i < THREADS; i++) {
            cmd.add(fx.getProperty("stress." + i + ".path"));
            cmd.add(fx.getProperty("stress." + i + ".expected"));
        }
        File errFile = new File(workDir, viaFd ? "stress-fd.stderr" : "stress.stderr");
        ProcessBuilder pb = new ProcessBuilder(cmd);
        pb.redirectError(errFile);
        Process p = pb.start();
        String out = new String(p.getInputStream().readAllBytes(), StandardCharsets.UTF_8).trim();
        if (!p.waitFor(600, TimeUnit.SECONDS)) {
            p.destroyForcibly();
            p.waitFor();
            failures.add(what + ": timed out");
            return;
        }
        String[] f = out.split(" ");
        if (p.exitValue() != 0 || f.length != 4 || !f[0].equals("ok")) {
            failures.add(what + ": " + out + " (exit " + p.exitValue() + ", stderr in " + errFile + ")");
            return;
        }
        long calls = Long.parseLong(f[1]);
        long warm = Long.parseLong(f[2]);
        long end = Long.parseLong(f[3]);
        System.out.println(what + ": " + calls + " correct calls; VmRSS " + warm + " KiB after warm-up, "
                + end + " KiB at the end (tolerance " + toleranceKiB + " KiB)");
        expectEquals(what + ": correct calls", String.valueOf((long) THREADS * CALLS), f[1]);
        if (warm <= 0 || end - warm > toleranceKiB) {
            failures.add(what + ": native memory grew by " + (end - warm) + " KiB");
        }
        reportJniChecks(what, new String(Files.readAllBytes(errFile.toPath()), StandardCharsets.UTF_8));
        errFile.delete();
    }

    // ---- helpers --------------------------------------------------------

    private String screennailInfoLine(String key) {
        return "ScreennailInfo m_fileOffset=0x" + fx.getProperty(key + ".offset")
                + " m_size=" + fx.getProperty(key + ".size")
                + " m_horizon=" + fx.getProperty(key + ".width")
                + " m_vertical=" + fx.getProperty(key + ".height");
    }

    // A line of a JNI check (-Xcheck:jni) in a child's standard error is a
    // failure, and is printed for the test's own output.
    private void reportJniChecks(String what, String stderr) {
        for (String line : stderr.split("\n")) {
            if (KpzGalleryCheck.JNI_CHECK_LINE.matcher(line).find()) {
                System.out.println("JNI check in child " + what + ": " + line);
                failures.add(what + ": JNI check: " + line);
            }
        }
    }

    private void expectEquals(String what, String expected, String actual) {
        if (!expected.equals(actual)) {
            failures.add(what + ": expected <" + expected + "> but was <" + actual + ">");
        }
    }

    // Every line of the entry in the child's standard error, as "<letter> <message>",
    // must be exactly `expected`; each must have the log library's whole format.
    private void expectLog(String what, Run run, List<String> expected) {
        List<String> got = new ArrayList<>();
        for (String line : run.stderr.split("\n", -1)) {
            if (!line.startsWith("KpzInterface ")) {
                continue;
            }
            Matcher m = LOG_LINE.matcher(line);
            if (!m.matches()) {
                failures.add(what + ": malformed log line <" + line + ">");
                continue;
            }
            got.add(m.group(1) + " " + m.group(2));
        }
        if (!got.equals(expected)) {
            failures.add(what + ": log lines\n  expected " + expected + "\n  but were " + got
                    + "\n  whole stderr:\n" + run.stderr);
        }
        if (run.exit != 0) {
            failures.add(what + ": child exited with " + run.exit + "\n" + run.stderr);
        }
    }

    // The same JVM, class path and library path as this one, running the child side.
    // With -Dkpztest.childJvmFlags=<flags> (the -Xcheck:jni run) each child
    // gets the same flags.
    private static List<String> javaCommand() {
        List<String> cmd = new ArrayList<>();
        cmd.add(ProcessHandle.current().info().command().orElse("java"));
        String flags = System.getProperty("kpztest.childJvmFlags", "").trim();
        if (!flags.isEmpty()) {
            cmd.addAll(Arrays.asList(flags.split("\\s+")));
        }
        cmd.add("-Djava.library.path=" + System.getProperty("java.library.path"));
        cmd.add("-cp");
        cmd.add(System.getProperty("java.class.path"));
        cmd.add(KaviKPZInterfaceCheck.class.getName());
        return cmd;
    }

    private Run child(String path) throws Exception {
        List<String> args = new ArrayList<>();
        args.add("--call");
        if (path != null) {
            args.add(path);
        }
        return childWith(args);
    }

    // A child JVM with `args`; its standard input is a pipe that stays open.
    private Run childWith(List<String> args) throws Exception {
        List<String> cmd = javaCommand();
        cmd.addAll(args);
        ProcessBuilder pb = new ProcessBuilder(cmd);
        File errFile = File.createTempFile("call", ".stderr", workDir);
        pb.redirectError(errFile);
        Process p = pb.start();
        Run run = new Run();
        run.stdout = new String(p.getInputStream().readAllBytes(), StandardCharsets.UTF_8).trim();
        if (!p.waitFor(120, TimeUnit.SECONDS)) {
            p.destroyForcibly();
            p.waitFor();
        }
        run.exit = p.exitValue();
        run.stderr = new String(Files.readAllBytes(errFile.toPath()), StandardCharsets.UTF_8);
        errFile.delete();
        reportJniChecks(String.join(" ", args), run.stderr);
        return run;
    }

    private static String sha256(byte[] bytes) throws NoSuchAlgorithmException {
        StringBuilder sb = new StringBuilder();
        for (byte b : MessageDigest.getInstance("SHA-256").digest(bytes)) {
            sb.append(String.format("%02x", b));
        }
        return sb.toString();
    }
}

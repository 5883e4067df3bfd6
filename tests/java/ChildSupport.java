// ChildSupport.java - what the child JVMs of both checks share
// (KaviKPZInterfaceCheck for the screennail entries, KpzGalleryCheck for the
// gallery calls): this process's descriptors as /proc/self/fd shows them, its
// resident memory, and the threads of a stress run.
//
//   ChildSupport.openKept(paths, 5, files, fds);   // a descriptor per thread, its offset at 5
//   ChildSupport.runThreads(8, me -> call(fds[me]), problems);
//   ChildSupport.closeKept(paths, 5, files, fds, problems);
//   return ChildSupport.report(problems, good, rssWarm, rssEnd);
//
// Linux only (/proc); holds nothing.
package kpztest;

import java.io.IOException;
import java.io.RandomAccessFile;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.List;

final class ChildSupport {
    private ChildSupport() {}

    // The work of one thread of a stress run; `me` numbers the thread from 0.
    interface Work {
        void run(int me) throws Exception;
    }

    // Runs `work` on `threads` threads at once and waits for all of them. A
    // thread's exception is added to `problems` (shared: guarded by itself) as
    // "thread <me>: <exception>".
    static void runThreads(int threads, Work work, List<String> problems) throws InterruptedException {
        List<Thread> workers = new ArrayList<>();
        for (int t = 0; t < threads; t++) {
            final int me = t;
            Thread worker = new Thread(() -> {
                try {
                    work.run(me);
                } catch (Exception e) {
                    synchronized (problems) {
                        problems.add("thread " + me + ": " + e);
                    }
                }
            });
            workers.add(worker);
            worker.start();
        }
        for (Thread worker : workers) {
            worker.join();
        }
    }

    // Opens each of `paths` with a RandomAccessFile (into `files`) whose
    // offset is moved to `offset`, and puts the number of its descriptor into
    // `fds`: the descriptors a stress run hands to the native calls.
    static void openKept(String[] paths, long offset, RandomAccessFile[] files, int[] fds)
            throws IOException {
        for (int i = 0; i < paths.length; i++) {
            files[i] = new RandomAccessFile(paths[i], "r");
            fds[i] = descriptorOf(paths[i]);
            files[i].seek(offset);
        }
    }

    // After a stress run: adds a problem for each descriptor of openKept whose
    // offset moved from `offset` or that is no longer open on its file, then
    // closes the files.
    static void closeKept(String[] paths, long offset, RandomAccessFile[] files, int[] fds,
            List<String> problems) throws IOException {
        for (int i = 0; i < paths.length; i++) {
            if (files[i].getFilePointer() != offset || !realPath(paths[i]).equals(linkOf(fds[i]))) {
                problems.add("thread " + i + ": descriptor " + fds[i] + " moved to "
                        + files[i].getFilePointer() + " or was closed");
            }
            files[i].close();
        }
    }

    // Prints a stress run's answer for the checking side: "ok <good> <rss
    // after warm-up KiB> <rss at end KiB>", or "fail <count> problems, first:
    // <problem>". The child's exit status: 0.
    static int report(List<String> problems, long good, long rssWarm, long rssEnd) {
        if (!problems.isEmpty()) {
            System.out.println("fail " + problems.size() + " problems, first: " + problems.get(0));
            return 0;
        }
        System.out.println("ok " + good + " " + rssWarm + " " + rssEnd);
        return 0;
    }

    // The number of this process's descriptor open on `path` (the highest, if
    // several), found in /proc/self/fd; -1 when there is none.
    static int descriptorOf(String path) throws IOException {
        String real = realPath(path);
        int found = -1;
        try (DirectoryStream<Path> fds = Files.newDirectoryStream(Paths.get("/proc/self/fd"))) {
            for (Path p : fds) {
                int n = Integer.parseInt(p.getFileName().toString());
                if (n > found && real.equals(linkOf(n))) {
                    found = n;
                }
            }
        }
        return found;
    }

    static String realPath(String path) throws IOException {
        return Paths.get(path).toRealPath().toString();
    }

    // What descriptor `fd` of this process is open on, or null when it is not open.
    // A descriptor number this process cannot have open: the soft limit of
    // open files (numbers run from 0 to the limit less one). A number opened
    // and closed again is no good as a closed descriptor: the JVM's own
    // threads may open a file on it at any moment.
    static int openFilesLimit() throws IOException {
        for (String line : Files.readAllLines(Paths.get("/proc/self/limits"))) {
            if (line.startsWith("Max open files")) {
                String[] words = line.substring("Max open files".length()).trim().split("\\s+");
                long soft = Long.parseLong(words[0]);
                return (int) Math.min(soft, Integer.MAX_VALUE);
            }
        }
        throw new IllegalStateException("no 'Max open files' line in /proc/self/limits");
    }

    static String linkOf(int fd) {
        try {
            return Files.readSymbolicLink(Paths.get("/proc/self/fd/" + fd)).toString();
        } catch (IOException e) {
            return null;
        }
    }

    // This process's resident memory in KiB (VmRSS), -1 when it cannot be read.
    static long vmRssKiB() {
        try {
            for (String line : Files.readAllLines(Paths.get("/proc/self/status"))) {
                if (line.startsWith("VmRSS:")) {
                    return Long.parseLong(line.replaceAll("[^0-9]", ""));
                }
            }
        } catch (IOException e) {
            return -1;
        }
        return -1;
    }
}

// KpzFrontEndCheck.java - the Java side of the differential test
// (tests/differential/front_ends_check.py): asks the real JVM entry for a
// file's preview or thumbnail, by path or through a descriptor the calling
// process handed down, and prints what came back, one line per request.
//
// Requests, one a line on standard input, fields separated by a tab:
//   <id> <picture> path <path>      picture: preview | thumbnail
//   <id> <picture> fd <n>           a descriptor open in this process
// Answers on standard output, one a line, in the order asked:
//   <id> OK <length> <sha-256 of the bytes, hex>
//   <id> <kind> <errno> <words>     kind: KpzException.Kind's name
// Words have backslash, tab, carriage return and newline escaped as \\, \t,
// \r, \n. A preview is read as a gallery reads it: readPreview into a small
// direct buffer, then into one of the length it asked for.
package kpztest;

import com.kavi.dtv.kpzinterface.KaviKPZInterface;
import com.kavi.dtv.kpzinterface.KpzException;
import java.io.BufferedReader;
import java.io.InputStreamReader;
import java.io.PrintStream;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.security.MessageDigest;

public final class KpzFrontEndCheck {
    private KpzFrontEndCheck() {}

    public static void main(String[] args) throws Exception {
        KaviKPZInterface kpz = new KaviKPZInterface();
        PrintStream out = new PrintStream(System.out, false, "UTF-8");
        BufferedReader in =
                new BufferedReader(new InputStreamReader(System.in, StandardCharsets.UTF_8));
        for (String line = in.readLine(); line != null; line = in.readLine()) {
            if (line.isEmpty()) {
                continue;
            }
            String[] field = line.split("\t", 4);
            if (field.length != 4) {
                throw new IllegalArgumentException("not a request: " + line);
            }
            out.println(field[0] + "\t" + answer(kpz, field[1], field[2], field[3]));
        }
        out.flush();
    }

    private static String answer(KaviKPZInterface kpz, String picture, String how, String where)
            throws Exception {
        boolean byFd = how.equals("fd");
        if (!byFd && !how.equals("path")) {
            throw new IllegalArgumentException("neither path nor fd: " + how);
        }
        int fd = byFd ? Integer.parseInt(where) : -1;
        try {
            byte[] bytes;
            if (picture.equals("thumbnail")) {
                bytes = byFd ? kpz.getThumbnail(fd) : kpz.getThumbnail(where);
            } else if (picture.equals("preview")) {
                bytes = readPreview(kpz, byFd, fd, where);
            } else {
                throw new IllegalArgumentException("no such picture: " + picture);
            }
            return "OK\t" + bytes.length + "\t" + sha256(bytes);
        } catch (KpzException e) {
            return e.getKind().name() + "\t" + e.getErrno() + "\t" + escape(e.getMessage());
        }
    }

    private static byte[] readPreview(KaviKPZInterface kpz, boolean byFd, int fd, String path)
            throws KpzException {
        ByteBuffer buffer = ByteBuffer.allocateDirect(16);
        int length = byFd ? kpz.readPreview(fd, buffer) : kpz.readPreview(path, buffer);
        if (length > buffer.capacity()) {
            buffer = ByteBuffer.allocateDirect(length);
            length = byFd ? kpz.readPreview(fd, buffer) : kpz.readPreview(path, buffer);
        }
        byte[] bytes = new byte[length];
        buffer.get(bytes);
        return bytes;
    }

    private static String sha256(byte[] bytes) throws Exception {
        StringBuilder hex = new StringBuilder();
        for (byte b : MessageDigest.getInstance("SHA-256").digest(bytes)) {
            hex.append(String.format("%02x", b & 0xff));
        }
        return hex.toString();
    }

    private static String escape(String words) {
        if (words == null) {
            return "";
        }
        return words.replace("\\", "\\\\").replace("\t", "\\t").replace("\r", "\\r")
                .replace("\n", "\\n");
    }
}

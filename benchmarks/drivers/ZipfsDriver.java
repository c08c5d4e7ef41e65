import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.io.PrintStream;
import java.net.URI;
import java.nio.file.FileSystem;
import java.nio.file.FileSystems;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.util.List;
import java.util.Map;
import java.util.stream.Stream;

/** The comparison's actions (see driver.h) over the ZIP file system of the JDK. */
public final class ZipfsDriver {
    private static FileSystem open(String archive) throws IOException {
        boolean make = !Files.exists(Path.of(archive));
        return FileSystems.newFileSystem(URI.create("jar:" + Path.of(archive).toUri()),
                Map.of("create", make ? "true" : "false"));
    }

    private static void put(FileSystem zip, String name, Path file) throws IOException {
        Path place = zip.getPath("/" + name);
        if (place.getParent() != null) {
            Files.createDirectories(place.getParent());
        }
        Files.copy(file, place, StandardCopyOption.REPLACE_EXISTING);
    }

    private static void print(FileSystem zip, String name, OutputStream out) throws IOException {
        try (InputStream in = Files.newInputStream(zip.getPath("/" + name))) {
            in.transferTo(out);
        }
    }

    private static List<Path> files(FileSystem zip) throws IOException {
        try (Stream<Path> walk = Files.walk(zip.getPath("/"))) {
            return walk.filter(Files::isRegularFile).toList();
        }
    }

    private static void commits(String archive, String folder, int count) throws IOException {
        List<String> names = Files.readAllLines(Path.of(folder + "-paths.txt"));
        for (String name : names.subList(0, Math.min(count, names.size()))) {
            try (FileSystem zip = open(archive)) {
                put(zip, name, Path.of(folder, name));
            }
        }
    }

    private static void run(FileSystem zip, String[] args, PrintStream out) throws IOException {
        switch (args[0]) {
            case "list" -> files(zip).forEach(path -> out.println(path.toString().substring(1)));
            case "read" -> {
                for (String name : Files.readAllLines(Path.of(args[2]))) {
                    print(zip, name, out);
                }
            }
            case "readall" -> {
                for (Path path : files(zip)) {
                    print(zip, path.toString().substring(1), out);
                }
            }
            case "cat" -> print(zip, args[2], out);
            case "add" -> put(zip, args[2], Path.of(args[3]));
            case "rename" -> Files.move(zip.getPath("/" + args[2]), zip.getPath("/" + args[3]));
            case "delete" -> Files.delete(zip.getPath("/" + args[2]));
            case "fill" -> {
                for (String name : Files.readAllLines(Path.of(args[2] + "-paths.txt"))) {
                    put(zip, name, Path.of(args[2], name));
                }
            }
            default -> throw new IllegalArgumentException(args[0]);
        }
    }

    public static void main(String[] args) throws IOException {
        if (args[0].equals("commits")) {
            commits(args[1], args[2], Integer.parseInt(args[3]));
            return;
        }
        PrintStream out = new PrintStream(new java.io.BufferedOutputStream(
                new java.io.FileOutputStream(java.io.FileDescriptor.out), 1 << 16));
        try (FileSystem zip = open(args[1])) {
            run(zip, args, out);
        }
        out.flush();
    }
}

package com.morvin.dom.telephony.sniffer.sample;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.service.Service;
import com.morvin.dom.telephony.sniffer.sample.transport.Transport;
import java.io.IOException;
import java.net.MalformedURLException;
import java.net.URI;
import java.net.URISyntaxException;
import java.net.URL;
import java.net.URLClassLoader;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ServiceConfigurationError;
import java.util.ServiceLoader;

/**
 * More than one machine: calls pass a broker. What does that is in a jar of its own, because it needs the broker's
 * client library, and is loaded only when it is asked for.
 */
public interface Cluster {
  /** What the jar is called; it lies beside that of this class. */
  String JAR = "voip-sniffer-cluster.jar";
  /** Where the client library comes from. */
  String PACKAGE = "librabbitmq-client-java";

  /** Follows calls and publishes their frames. */
  Service front(URI broker, long bufferBytes, Service.Limits limits, Console console) throws IOException;

  /** Delivers what a queue of the broker holds. */
  Transport queue(URI broker, String queue, Console console) throws IOException;

  /**
   * Loads it.
   *
   * @throws IOException when it is not installed, with a message that says what to do
   */
  static Cluster load() throws IOException {
    try {
      Path jar = Path.of(Cluster.class.getProtectionDomain().getCodeSource().getLocation().toURI()).resolveSibling(JAR);
      URL[] where = Files.exists(jar) ? new URL[] {jar.toUri().toURL()} : new URL[0];
      ClassLoader loader = new URLClassLoader(where, Cluster.class.getClassLoader());
      return ServiceLoader.load(Cluster.class, loader).findFirst().orElseThrow(() -> new IOException(
          "--publish and --consume need " + jar + ", which is built where the package " + PACKAGE + " is installed"));
    } catch (ServiceConfigurationError | LinkageError e) {
      throw new IOException("--publish and --consume need the package " + PACKAGE + ": install it (" + e + ")", e);
    } catch (URISyntaxException | MalformedURLException e) {
      throw new IOException("cannot find " + JAR + ": " + e.getMessage(), e);
    }
  }
}

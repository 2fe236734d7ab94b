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
 * Recording on more than one machine, connected by a broker. The implementation is in a separate jar, because it needs
 * the client library of the broker. It is loaded only when the command line asks for it.
 */
public interface Cluster {
  /** The name of the jar, which is in the directory of the jar of this class. */
  String JAR = "voip-sniffer-cluster.jar";
  /** The package of the client library. */
  String PACKAGE = "librabbitmq-client-java";

  /**
   * Returns a service that follows calls and publishes their frames.
   *
   * @param bufferBytes the bound of the messages that it keeps while the broker is slow or cannot be reached
   * @param spool the directory of what it needs after a restart; null when it keeps nothing
   */
  Service front(URI broker, long bufferBytes, Path spool, Service.Limits limits, Console console)
      throws IOException;

  /** Returns a transport that delivers the frames in a queue of the broker. */
  Transport queue(URI broker, String queue, Console console) throws IOException;

  /**
   * Loads the implementation.
   *
   * @throws IOException when it is not installed, with a message for the operator
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

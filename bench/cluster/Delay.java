import com.rabbitmq.client.AMQP;
import com.rabbitmq.client.Channel;
import com.rabbitmq.client.Connection;
import com.rabbitmq.client.ConnectionFactory;
import com.rabbitmq.client.DefaultConsumer;
import com.rabbitmq.client.Envelope;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.util.Arrays;
import java.util.List;
import java.util.Locale;

/**
 * Consumes queues and prints the delay of the RTP frames since their capture. Arguments: URI, most frames, queues.
 * Discards what waits in the queues, counts from the first line that is written to it, and ends with the second one.
 */
public final class Delay {
  private static final int RTP = 2;
  private static final int CAPTURE_TIME = 5;

  private final long[] delays;
  private int count;

  private Delay(int most) {
    delays = new long[most];
  }

  public static void main(String[] arguments) throws Exception {
    ConnectionFactory factory = new ConnectionFactory();
    factory.setUri(arguments[0]);
    Delay delay = new Delay(Integer.parseInt(arguments[1]));
    try (Connection connection = factory.newConnection()) {
      Channel channel = connection.createChannel();
      channel.basicQos(1000);
      DefaultConsumer consumer = new DefaultConsumer(channel) {
        @Override
        public void handleDelivery(String tag, Envelope envelope, AMQP.BasicProperties properties, byte[] body)
            throws IOException {
          delay.take(body);
          channel.basicAck(envelope.getDeliveryTag(), false);
        }
      };
      for (String queue : List.of(arguments).subList(2, arguments.length)) {
        channel.queuePurge(queue);
        channel.basicConsume(queue, false, consumer);
      }
      System.out.println("consuming");
      System.in.read();
      delay.restart();
      System.in.read();
    }
    delay.print();
  }

  private synchronized void take(byte[] body) {
    long now = System.currentTimeMillis() * 1000;
    long captured = 0;
    ByteBuffer in = ByteBuffer.wrap(body);
    for (int at = 0; at < body.length; at += in.getShort(at) & 0xffff) {
      if (in.get(at + 2) == CAPTURE_TIME) {
        captured = in.getLong(at + 15);
      } else if (in.get(at + 2) == RTP && count < delays.length) {
        delays[count++] = now - captured;
      }
    }
  }

  private synchronized void restart() {
    count = 0;
  }

  private synchronized void print() {
    Arrays.sort(delays, 0, count);
    System.out.printf(Locale.ROOT, "%d frames, delay from wire to recorder %d ms in the middle, %d ms for 99 %%%n",
        count, delays[count / 2] / 1000, delays[count * 99 / 100] / 1000);
  }
}
